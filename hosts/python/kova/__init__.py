"""Kova: the same order, case, formats and conversions on every machine.

>>> import kova
>>> sorted(['Zebra', 'Äpfel', 'Apfel'], key=kova.Locale('de_DE').key)
['Apfel', 'Äpfel', 'Zebra']
"""
from ._codec import SubstitutionWarning, codec, convert
from ._kova import Error, NotFoundError, library_version
from ._locale import Locale, locales
from ._values import Day, Month
from ._version import __version__

__all__ = ["Day", "Error", "Locale", "Month", "NotFoundError", "SubstitutionWarning",
           "__version__", "codec", "convert", "library_version", "locales"]
