"""Kova: the same order, case, formats and conversions on every machine.

>>> import kova
>>> sorted(['Zebra', 'Äpfel', 'Apfel'], key=kova.Locale('de_DE').key)
['Apfel', 'Äpfel', 'Zebra']
"""
from ._kova import Error, NotFoundError, library_version
from ._locale import Locale, locales

__all__ = ["Error", "Locale", "NotFoundError", "library_version", "locales"]
__version__ = "2.86.0"
