"""The version, which the build compares with that of the C headers."""

__version__ = "1.0.0"
