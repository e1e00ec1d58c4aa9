"""velqora.develop and velqora.Developer: neutral settings give demosaic()'s bytes; each setting reaches the
library in its place (per-site black, white, gains, matrix, curve, 8 and 16-bit output), against the rule
stated in numpy; automatic balance, once and continuous; refused arguments; the setters."""

import numpy as np
import pytest

import velqora

SRGB = lambda c: np.where(c <= 0.0031308, 12.92 * c, 1.055 * np.power(c, 1 / 2.4) - 0.055)


@pytest.mark.parametrize("method", ["nearest", "bilinear", "edge"])
def test_neutral_settings_give_demosaic(method):
    raw = np.random.default_rng(1).integers(0, 256, (37, 54), dtype=np.uint8)
    for output in ("BGR8", "RGBA8", "RGB8_Planar", "Mono8"):
        np.testing.assert_array_equal(velqora.develop(raw, "BayerGB8", method, output),
                                      velqora.demosaic(raw, "BayerGB8", method, output))


@pytest.mark.parametrize("method", ["nearest", "bilinear"])
def test_textured_12_bit_frame_follows_the_rule(method):
    # Per-site black, white, gains, matrix and sRGB on a random frame, against the rule in double precision;
    # the demosaic step is demosaic16 of the balanced mosaic carried at 16 bits, as the rule states.
    rng = np.random.default_rng(6)
    h, w = 30, 46
    raw = rng.integers(0, 4096, (h, w)).astype(np.uint16)
    black, white, gains = np.array([200., 256, 240, 300]), 4000, np.array([1.7, 1.0, 2.2])
    matrix = np.array([[1.6, -0.4, -0.2], [-0.3, 1.5, -0.2], [0.1, -0.5, 1.4]])
    site = np.tile(black.reshape(2, 2), (h // 2, w // 2))
    n = np.clip((raw - site) / (white - site), 0, 1) * np.tile(gains[[[0, 1], [1, 2]]], (h // 2, w // 2))
    mosaic = np.rint(np.minimum(n, 1) * 65535).astype(np.uint16)
    c = np.clip(velqora.demosaic16(mosaic, "BayerRG16", method, output="RGB16") / 65535 @ matrix.T, 0, 1)
    kw = dict(black=black, white=white, balance=gains, matrix=matrix)
    err = np.abs(velqora.develop(raw, "BayerRG12", method, "RGB8", transfer="srgb", **kw) - np.rint(SRGB(c) * 255))
    assert err.max() <= 3 and (err > 1).mean() < 1e-3
    got = velqora.develop(raw, "BayerRG12", method, "RGB8", u16=True, **kw)  # the 8-bit name's 16-bit twin
    steps = (1 + np.abs(matrix).sum(axis=1)) * (2 if method == "bilinear" else 1)
    assert got.dtype == np.uint16 and (np.abs(got - np.rint(c * 65535)) <= steps + 0.5).all()


def tinted(tint, seed):
    rng = np.random.default_rng(seed)
    grey = rng.uniform(0.1, 0.7, (64, 96))
    raw = np.empty((128, 192), np.uint16)
    for k, t in enumerate(tint[:1] + tint[1:2] * 2 + tint[2:]):  # R, G, G, B of RGGB
        raw[k // 2::2, k % 2::2] = (grey * t * 4095).astype(np.uint16)
    return raw


def test_automatic_balance():
    raw = tinted([0.5, 0.9, 0.3], 3)
    with velqora.Developer(balance="once") as dev:
        dev.develop(raw, "BayerRG12", "bilinear")
        assert dev.balance_auto == "off"
        assert dev.gains == pytest.approx((1.8, 1.0, 3.0), rel=0.01)
    with velqora.Developer(balance="auto", threads=2) as dev:
        assert dev.balance_auto == "continuous"
        first = dev.develop(raw, "BayerRG12", "edge")
        np.testing.assert_array_equal(first, velqora.develop(raw, "BayerRG12", "edge", balance="auto"))
        other = tinted([0.8, 0.9, 0.45], 4)
        out = np.empty_like(first)
        for _ in range(9):
            dev.develop(other, "BayerRG12", "edge", out=out)
        assert dev.gains == pytest.approx((0.9 / 0.8, 1.0, 2.0), rel=0.01)
        assert dev.balance_auto == "continuous"


@pytest.mark.parametrize("kwargs, named, error", [
    (dict(black=-1), "black", velqora.Error), (dict(black=[1, 2]), "black", velqora.Error),
    (dict(black=float("nan")), "black", velqora.Error), (dict(black=500, white=400), "white", velqora.Error),
    (dict(balance=(1, -1, 1)), "balance", velqora.Error), (dict(balance="grey"), "balance", velqora.Error),
    (dict(matrix=[1, 0, 0]), "matrix", velqora.Error), (dict(matrix=[float("inf")] * 9), "matrix", velqora.Error),
    (dict(transfer="cubic"), "transfer", velqora.Error), (dict(transfer=12), "transfer", velqora.Error),
    (dict(black="64"), "black", TypeError), (dict(white="max"), "white", TypeError),
    (dict(balance=object()), "balance", TypeError), (dict(matrix="eye"), "matrix", TypeError),
    (dict(transfer=[2.2]), "transfer", TypeError), (dict(u16=True, output="Mono8"), "output", velqora.Error)])
def test_refused_arguments_name_themselves(kwargs, named, error):
    raw = np.zeros((8, 8), np.uint16)
    with pytest.raises(error, match=named) as e:
        velqora.develop(raw, "BayerRG12", **kwargs)
    assert getattr(e.value, "status", None) in (None, -120)
    with pytest.raises(velqora.Error) as e:  # black above the depth's maximum: refused by the frame
        velqora.develop(raw, "BayerRG12", black=5000)
    assert e.value.name == "VQP_ERR_BAD_PARAMETER"


def test_setters_change_one_setting_and_refusals_change_nothing():
    raw = tinted([0.5, 0.9, 0.3], 5)
    with velqora.Developer(black=64, balance="auto", matrix=np.eye(3) * 0.9) as dev:
        for _ in range(3):
            dev.develop(raw, "BayerRG12")
        gains = dev.balance
        for name, bad in (("white", 50), ("black", -3), ("balance", (1, float("nan"), 1)), ("transfer", 0.0),
                          ("matrix", np.eye(2))):
            with pytest.raises(velqora.Error, match=name):
                setattr(dev, name, bad)
        assert (dev.white, dev.black, dev.balance_auto, dev.balance) == (None, [64.0] * 4, "continuous", gains)
        dev.transfer = "srgb"  # the curve alone: the balance keeps running
        np.testing.assert_array_equal(dev.develop(raw, "BayerRG12", "nearest"),
                                      velqora.develop(raw, "BayerRG12", "nearest", black=64, balance=gains,
                                                      matrix=np.eye(3) * 0.9, transfer="srgb"))
        assert dev.balance_auto == "continuous"
        dev.balance = (2.0, 1.0, 1.5)
        assert dev.balance_auto == "off" and dev.gains == pytest.approx((2.0, 1.0, 1.5))
