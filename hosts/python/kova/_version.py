__version__ = "2.86.0"
