"""python -m velqora batch ...: the batch converter (velqora-batch)."""

import sys


def main() -> int:
    if len(sys.argv) < 2 or sys.argv[1] != "batch":
        print("usage: python -m velqora batch [options] FILE...   (python -m velqora batch --help)", file=sys.stderr)
        return 2
    from .batch import main as batch
    return batch(sys.argv[2:])


if __name__ == "__main__":
    sys.exit(main())
