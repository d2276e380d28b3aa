"""Conversions between code sets: convert, and codecs for Python's own functions."""
import codecs
import os
import threading
import warnings

from . import _kova

KEEP_MARK, WRITE_MARK = 16, 32
ILLEGAL, CUT_OFF = 1, 7  # errors of the library
PREFIX = "kova"
_START = (1, 0, 0, 0)  # the state at the start of a text: first piece, source, target, mark
_KOREAN, _ANNOUNCED = 57502, 0x20010  # ISO-2022-KR says once which characters it shifts to
# Digits of six bits, of UTF-7 and of its form for names of mailboxes.
_LETTERS = b"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+"
_DIGITS = {57506: _LETTERS + b"/", 57507: _LETTERS + b","}
_UTF16, _UTF32 = ("utf16", "utf16le", "utf16be"), ("utf32", "utf32le", "utf32be")


class SubstitutionWarning(UnicodeWarning):
    """A conversion has written something else for a character that the code set lacks."""


# ---- Converters ----

# A converter serves one thread at a time. Those that are not in use wait here, by kinds, of which
# those used last are kept: the same code set has many names.
_idle: dict = {}
_idle_lock = threading.Lock()
_IDLE_MOST = 4  # of one kind
_KINDS_MOST = 64


class _Lent:
    """A converter for the time of a call."""

    __slots__ = ("kind", "converter")

    def __init__(self, *kind):
        self.kind = kind

    def __enter__(self):
        with _idle_lock:
            waiting = _idle.get(self.kind)
            self.converter = waiting.pop() if waiting else None
        if self.converter is None:
            self.converter = _kova.Converter(*self.kind)
        return self.converter

    def __exit__(self, *unused):
        with _idle_lock:
            waiting = _idle[self.kind] = _idle.pop(self.kind, [])
            if len(waiting) < _IDLE_MOST:
                waiting.append(self.converter)
            dropped = _idle.pop(next(iter(_idle))) if len(_idle) > _KINDS_MOST else None
        del dropped


def _root(root):
    return None if root is None else os.fspath(root)


def _plain(name):
    return "".join(c for c in name.lower() if c.isalnum())


def _bytes(data):
    """The bytes of a buffer; bytes() would also take a number, as the length of null bytes."""
    return data if isinstance(data, bytes) else bytes(memoryview(data))


def _warn(encoding, frames=4):
    """Warns whoever is so many frames up, by default the caller of what calls run."""
    warnings.warn(f"{encoding}: characters were substituted", SubstitutionWarning, stacklevel=frames)


# ---- Decoding ----

def _trial(converter, data, at, count, state):
    """The error that so many bytes make by themselves."""
    return converter.run(data[at:at + count], 0, False, state)[2]


def _bad_length(converter, data, at, state, name):
    """The bytes that are not a character at a place: as many as show it, without those that are
    characters by themselves."""
    most = min(len(data) - at, 8)
    if name in _UTF16 or name in _UTF32:
        return min(most, 2 if name in _UTF16 else 4)
    count = 1
    while count < most and _trial(converter, data, at, count, state) == CUT_OFF:
        count += 1
    if name == "utf8":
        return max(count - 1, 1)
    for i in range(1, count):
        if _trial(converter, data, at + i, 1, state) == 0:
            return i
    return count


def _handle(error, errors, length):
    """What an error handler puts in place, and where it goes on."""
    replacement, at = codecs.lookup_error(errors)(error)
    if at < 0:
        at += length
    if not 0 <= at <= length:
        raise IndexError(f"position {at} from error handler out of bounds")
    return replacement, at


class _Decoder:
    """Decodes a code set, in pieces if wanted."""

    def __init__(self, codeset, root, encoding, flags=KEEP_MARK):
        self.kind = (codeset, "utf8", root, flags)
        self.encoding = encoding
        self.name = _plain(codeset)
        self.digits = _DIGITS.get(_kova.code_set_number(root, codeset))

    def _refuse(self, converter, data, at, error, state):
        if error == CUT_OFF:
            end, reason = len(data), "incomplete multibyte sequence"
        elif error == ILLEGAL:
            end = at + _bad_length(converter, data, at, state, self.name)
            reason = "illegal multibyte sequence"
        else:
            raise _kova.Error(f"{self.encoding}: {_kova.error_text(error)}")
        return UnicodeDecodeError(self.encoding, data, at, end, reason)

    def _state_after(self, bad, state):
        """The state after bytes that are no character. In UTF-7 bits that are left over go with
        them; and its digits go on if they were digits."""
        if not self.digits:
            return state
        return state[0], state[1] & (bad.object[bad.end - 1:bad.end] in self.digits), *state[2:]

    def run(self, data, errors, final, state):
        """The text, the bytes that it takes, and the state after it."""
        parts, at, substituted = [], 0, 0
        with _Lent(*self.kind) as converter:
            while True:
                made, taken, error, state, lossy = converter.run(data, at, final, state)
                substituted |= lossy
                parts.append(made.decode("utf-8"))
                at += taken
                if not error or (error == CUT_OFF and not final):
                    break
                bad = self._refuse(converter, data, at, error, state)
                replacement, at = _handle(bad, errors, len(data))
                if not isinstance(replacement, str):
                    raise TypeError("a decoding error handler must return a str")
                parts.append(replacement)
                state = self._state_after(bad, state)
                if at == len(data):
                    break
        if substituted:
            _warn(self.encoding)
        return "".join(parts), at, state


# ---- Encoding ----

def _utf8(text):
    if not isinstance(text, str):
        raise TypeError(f"a str is needed, not {type(text).__name__}")
    return text.encode("utf-8", "surrogatepass")


def _is_surrogate(character):
    return "\ud800" <= character <= "\udfff"


class _Encoder:
    """Encodes a code set. Every piece ends as a whole text does, with the way back from shifts,
    because files of Python never say that a text has ended."""

    def __init__(self, codeset, root, encoding, write_mark=True):
        mark = WRITE_MARK if write_mark and _plain(codeset) == "utf16" else 0
        self.kind = ("utf8", codeset, root, KEEP_MARK | mark)
        self.encoding = encoding
        korean = _kova.code_set_number(root, codeset) == _KOREAN
        self.lasting = _ANNOUNCED if korean else 0

    def _find(self, converter, data, offset, state):
        """The bytes of UTF-8 before the next character that cannot be written, or None."""
        _, taken, error, state, _ = converter.run(data, offset, True, state)
        if error not in (0, ILLEGAL, CUT_OFF):
            raise _kova.Error(f"{self.encoding}: {_kova.error_text(error)}")
        return offset + taken if error else None, state

    def _replaced(self, converter, text, errors, state):
        """The text with what the error handler puts in place: parts of str, and of bytes, which
        are written as they are."""
        data = _utf8(text)
        parts, at, offset, first = [], 0, 0, None
        while True:
            found, state = self._find(converter, data, offset, state)
            if found is None:
                parts.append(text[at:])
                return parts, first
            bad = at + len(data[offset:found].decode("utf-8", "surrogatepass"))
            error = UnicodeEncodeError(self.encoding, text, bad, self._end(converter, text, bad),
                                       "illegal multibyte sequence")
            first = first or error
            parts.append(text[at:bad])
            replacement, at = _handle(error, errors, len(text))
            if not isinstance(replacement, (str, bytes)):
                raise TypeError("an encoding error handler must return a str or bytes")
            parts.append(replacement)
            offset = found + len(_utf8(text[bad:at])) if at >= bad else len(_utf8(text[:at]))

    def _end(self, converter, text, at):
        """The end of a run of characters that cannot be written, which handlers take at once; of
        surrogates, which some handlers take alone, or of others."""
        end = at + 1
        while end < len(text) and _is_surrogate(text[end]) == _is_surrogate(text[at]):
            if converter.run(_utf8(text[end]), 0, True, _START)[2] != ILLEGAL:
                break
            end += 1
        return end

    def _write(self, converter, text, state):
        data = _utf8(text)
        made, _, error, after, lossy = converter.run(data, 0, True, state)
        target = self.lasting if made or state[2] else 0
        return made, error, (0, 0, target, after[3]), lossy

    def begun(self):
        """The state after the start of any text."""
        try:
            return self.run("0", "strict", _START)[1]
        except UnicodeError:
            return (0, 0, 0, 0)

    def run(self, text, errors, state):
        """The bytes, and the state after them."""
        with _Lent(*self.kind) as converter:
            made, error, after, lossy = self._write(converter, text, state)
            if error:
                made, after, lossy = self._write_replaced(converter, text, errors, state)
        if lossy:
            _warn(self.encoding)
        return made, after

    def _write_replaced(self, converter, text, errors, state):
        parts, first = self._replaced(converter, text, errors, state)
        made, substituted, pending = [], 0, ""
        for part in parts + [b""]:
            if isinstance(part, str):
                pending += part
                continue
            if pending:
                data, error, state, lossy = self._write(converter, pending, state)
                if error:
                    raise first
                made.append(data)
                substituted |= lossy
                pending = ""
            made.append(part)
        return b"".join(made), state, substituted


# ---- Functions ----

def decode(data, codeset, errors="strict", *, root=None):
    decoder = _Decoder(codeset, _root(root), codeset)
    return decoder.run(_bytes(data), errors, True, _START)[0]


def convert(data, from_, to, errors="strict", *, root=None):
    """Bytes of one code set as those of another. Names of code sets may be written in any usual
    way. What cannot be converted goes to an error handler of Python.

    >>> convert("Grüße".encode("latin-1"), "ISO-8859-1", "IBM037").hex()
    'c799dc5985'
    >>> convert(b"\\xc7\\x99\\xdc\\x59\\x85", "cp037", "utf8").decode()
    'Grüße'
    >>> convert("漢字".encode(), "utf8", "ISO-8859-1", errors="xmlcharrefreplace")
    b'&#28450;&#23383;'
    """
    data, root = _bytes(data), _root(root)
    with _Lent(from_, to, root, 0) as converter:
        made, _, error, _, lossy = converter.run(data, 0, True, _START)
    if not error:
        if lossy:
            _warn(f"{from_} to {to}", 3)
        return made
    text = _Decoder(from_, root, from_, 0).run(data, errors, True, _START)[0]
    return _Encoder(to, root, to, False).run(text, errors, _START)[0]


# ---- Codecs ----

class _IncrementalEncoder(codecs.IncrementalEncoder):
    """getstate is 2 at the start of a text, as for Python's own codecs with a mark."""

    def __init__(self, errors="strict"):
        super().__init__(errors)
        self._state = _START

    def encode(self, text, final=False):
        if not text:
            return b""
        made, self._state = self._encoder.run(text, self.errors, self._state)
        return made

    def reset(self):
        self._state = _START

    def getstate(self):
        return 2 if self._state[0] else 0

    def setstate(self, state):
        self._state = _START if state == 2 else self._encoder.begun()


class _IncrementalDecoder(codecs.IncrementalDecoder):
    def __init__(self, errors="strict"):
        super().__init__(errors)
        self.reset()

    def decode(self, data, final=False):
        data = self._kept + _bytes(data)
        text, taken, self._state = self._decoder.run(data, self.errors, final, self._state)
        self._kept = data[taken:]
        return text

    def reset(self):
        self._kept, self._state = b"", _START

    def getstate(self):
        first, source, target, mark = self._state
        return self._kept, (0 if first else 1) | source << 1 | target << 33 | mark << 65

    def setstate(self, state):
        self._kept, bits = state
        self._state = (0 if bits & 1 else 1, bits >> 1 & 0xFFFFFFFF, bits >> 33 & 0xFFFFFFFF,
                       bits >> 65)


class _StreamWriter(codecs.StreamWriter):
    def __init__(self, stream, errors="strict"):
        super().__init__(stream, errors)
        self._state = _START

    def encode(self, text, errors="strict"):
        if not text:
            return b"", 0
        made, self._state = self._encoder.run(text, errors, self._state)
        return made, len(text)

    def reset(self):
        super().reset()
        self._state = _START


class _StreamReader(codecs.StreamReader):
    def __init__(self, stream, errors="strict"):
        super().__init__(stream, errors)
        self._state = _START

    def decode(self, data, errors="strict"):
        text, taken, self._state = self._decoder.run(_bytes(data), errors, False, self._state)
        return text, taken

    def reset(self):
        super().reset()
        self._state = _START


def codec(codeset, *, root=None, name=None):
    """The codecs.CodecInfo of a code set, for a root that is not the default one."""
    root, name = _root(root), name or f"{PREFIX}-{codeset}"
    parts = {"_encoder": _Encoder(codeset, root, name), "_decoder": _Decoder(codeset, root, name)}

    def made(base):
        return type(base.__name__.strip("_"), (base,), dict(parts))

    def encode_all(text, errors="strict"):
        return parts["_encoder"].run(text, errors, _START)[0], len(text)

    def decode_all(data, errors="strict"):
        data = _bytes(data)
        return parts["_decoder"].run(data, errors, True, _START)[0], len(data)

    return codecs.CodecInfo(encode_all, decode_all, made(_StreamReader), made(_StreamWriter),
                            made(_IncrementalEncoder), made(_IncrementalDecoder), name)


def search(name):
    """Finds "kova-ibm939" for the functions of Python that take the name of an encoding."""
    if not name.startswith(PREFIX) or name[len(PREFIX):len(PREFIX) + 1] not in ("-", "_"):
        return None
    codeset = name[len(PREFIX) + 1:]
    try:
        if not codeset or _kova.code_set_number(None, codeset) < 0:
            return None
    except (ValueError, UnicodeError):
        return None
    return codec(codeset, name=f"{PREFIX}-{codeset}")


codecs.register(search)
