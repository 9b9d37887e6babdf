"""Checks numbers for C, since a number that is too large would lose bits."""

import math


def integer(value: int, bits: int = 32, signed: bool = True) -> int:
    least, most = (-(1 << (bits - 1)), 1 << (bits - 1)) if signed else (0, 1 << bits)
    if not least <= value < most:
        raise OverflowError(f"{value} does not fit into {bits} bits")
    return value


def milliseconds(seconds: float | None) -> int:
    """A time to wait, in the library's form; below 0 there is no limit."""
    if seconds is None:
        return -1
    if seconds < 0:
        raise ValueError("a time to wait is not below 0")
    return integer(math.ceil(seconds * 1000))


def time_limit(seconds: float | None) -> int:
    """A time limit for calls to the service. It cannot be 0, since the service cannot answer at once."""
    if seconds == 0:
        raise ValueError("a time limit is above 0")
    return milliseconds(seconds)
