from typing import Literal, Mapping, Optional, Union

import numpy as np
import numpy.typing as npt

__version__: str
def vector_level() -> Literal["scalar", "avx2", "avx512", "neon"]: ...
INPUT_FORMATS: Mapping[str, int]
OUTPUT_FORMATS: Mapping[str, int]
METHODS: Mapping[str, int]
INPUT_FORMATS16: Mapping[str, int]
OUTPUT_FORMATS16: Mapping[str, int]

Method = Union[Literal["nearest", "bilinear", "edge"], int]
Output = Union[Literal["BGR8", "RGB8", "BGRA8", "RGBA8", "RGB8_Planar", "BGR8_Planar", "Mono8"], int]
Pattern = Literal["RGGB", "GRBG", "GBRG", "BGGR"]
Output16 = Union[Literal["BGR16", "RGB16", "RGB16_Planar", "BGR16_Planar"], int]

class Error(ValueError):
    status: Optional[int]
    name: Optional[str]
    def __init__(self, message: str, status: Optional[int] = ...) -> None: ...

class Demosaicer:
    threads: int
    def __init__(self, threads: int = ...) -> None: ...
    def close(self) -> None: ...
    def __enter__(self) -> "Demosaicer": ...
    def __exit__(self, *exc: object) -> None: ...
    def demosaic(self, raw: npt.ArrayLike, fmt: Union[str, int], method: Method = ..., output: Output = ..., *,
                 width: Optional[int] = ..., height: Optional[int] = ..., stride: Optional[int] = ...,
                 out: Optional[npt.NDArray[np.uint8]] = ...) -> npt.NDArray[np.uint8]: ...
    def demosaic16(self, raw16: npt.ArrayLike, fmt: Union[Pattern, str, int], method: Method = ..., planar: bool = ...,
                   out: Optional[npt.NDArray[np.uint16]] = ..., *, bits: Optional[int] = ...,
                   output: Optional[Output16] = ..., full_range: bool = ..., width: Optional[int] = ...,
                   height: Optional[int] = ..., stride: Optional[int] = ...) -> npt.NDArray[np.uint16]: ...

def demosaic(raw: npt.ArrayLike, fmt: Union[str, int], method: Method = ..., output: Output = ..., *,
             width: Optional[int] = ..., height: Optional[int] = ..., stride: Optional[int] = ...,
             out: Optional[npt.NDArray[np.uint8]] = ..., threads: int = ...) -> npt.NDArray[np.uint8]: ...
def demosaic16(raw16: npt.ArrayLike, fmt: Union[Pattern, str, int], method: Method = ..., planar: bool = ...,
               out: Optional[npt.NDArray[np.uint16]] = ..., *, bits: Optional[int] = ...,
               output: Optional[Output16] = ..., full_range: bool = ..., width: Optional[int] = ...,
               height: Optional[int] = ..., stride: Optional[int] = ...,
               threads: int = ...) -> npt.NDArray[np.uint16]: ...

TRANSFERS: Mapping[str, int]
Levels = Union[float, npt.ArrayLike]
Balance = Union[Literal["auto", "once"], npt.ArrayLike, None]
Transfer = Union[Literal["linear", "srgb"], float]

class Developer:
    threads: int
    def __init__(self, threads: int = ..., *, black: Optional[Levels] = ..., white: Optional[float] = ...,
                 balance: Balance = ..., matrix: Optional[npt.ArrayLike] = ..., transfer: Transfer = ...) -> None: ...
    def close(self) -> None: ...
    def __enter__(self) -> "Developer": ...
    def __exit__(self, *exc: object) -> None: ...
    def configure(self, *, black: Optional[Levels] = ..., white: Optional[float] = ..., balance: Balance = ...,
                  matrix: Optional[npt.ArrayLike] = ..., transfer: Transfer = ...) -> None: ...
    @property
    def gains(self) -> tuple[float, float, float]: ...
    @property
    def balance_auto(self) -> Literal["off", "once", "continuous"]: ...
    def develop(self, raw: npt.ArrayLike, fmt: Union[str, int], method: Method = ...,
                output: Union[Output, Output16] = ..., *, width: Optional[int] = ..., height: Optional[int] = ...,
                stride: Optional[int] = ..., out: Optional[np.ndarray] = ...) -> np.ndarray: ...

def develop(raw: npt.ArrayLike, fmt: Union[str, int], method: Method = ..., output: Union[Output, Output16] = ..., *,
            black: Optional[Levels] = ..., white: Optional[float] = ..., balance: Balance = ...,
            matrix: Optional[npt.ArrayLike] = ..., transfer: Transfer = ..., width: Optional[int] = ...,
            height: Optional[int] = ..., stride: Optional[int] = ..., out: Optional[np.ndarray] = ...,
            threads: int = ...) -> np.ndarray: ...
