#!/usr/bin/env python3
"""One order of the 100,000 strings in all hosts, and the same key bytes: the last step of check-hosts.
    orders.py locales                               those in which every host sorts
    orders.py compare BIN_DIR ROOT OUT HOST=STATUS...
Each host adds to the file "orders" in its folder, OUT/HOST, what note() writes: a row of the locale,
its name, and the hashes of its sorted list and of the keys in hexadecimal, a line each. STATUS is
passed, failed or skipped; a host that passed must have a row of each locale."""
import collections
import hashlib
import os
import subprocess
import sys

import strings

LOCALES = ("de_DE", "sv_SE", "ja_JP", "th_TH", "fr_CA")
# The names under which a host sorts, where they are not its own.
NAMES = {"sqlite": ["SQLite"], "postgres": ["PostgreSQL, one server", "PostgreSQL, three servers"],
         "python": ["Python"], "web": ["Node"], "web/page": ["Chromium"]}


def hash_of(lines):
    return hashlib.sha256("".join(line + "\n" for line in lines).encode()).hexdigest()


def note(locale, name, texts, keys):
    """Adds a row where check-hosts runs the host."""
    if "KOVA_HOST_DIR" in os.environ:
        with open(os.path.join(os.environ["KOVA_HOST_DIR"], "orders"), "a", encoding="utf-8") as f:
            f.write(f"{locale}\t{name}\t{hash_of(texts)}\t{hash_of(keys)}\n")


def rows_of_c(commands, root):
    """The rows of the library called from C, and of the command, which shows no keys."""
    lines = "".join(text + "\n" for text in strings.strings(100000)).encode()

    def output(*command):
        made = subprocess.run(command, input=lines, stdout=subprocess.PIPE, check=True).stdout
        return made.decode().split("\n")[:-1]

    for locale in LOCALES:
        spec = locale + ".unicode"
        rows = [line.split("\t", 1) for line in output(f"{commands}/host_order", root, spec)]
        texts, keys = [text for _, text in rows], [key for key, _ in rows]
        yield locale, "C", hash_of(texts), hash_of(keys)
        by_command = output(f"{commands}/kova", "sort", "--utf8", "--root", root, "-l", spec)
        yield locale, "kova sort", hash_of(by_command), None


def rows_of_host(folder):
    try:
        with open(os.path.join(folder, "orders"), encoding="utf-8") as f:
            return [line.rstrip("\n").split("\t") for line in f]
    except FileNotFoundError:
        return []


def compare(commands, root, out, *hosts):
    found = collections.defaultdict(dict)  # by name and locale: the two hashes
    wanted, absent = ["C", "kova sort"], []
    rows = list(rows_of_c(commands, root))
    for host, status in (argument.rsplit("=", 1) for argument in hosts):
        names = NAMES.get(host, [host])
        if status == "passed":
            wanted += names
        else:
            absent += [f"{name} ({status})" for name in names]
        rows += rows_of_host(os.path.join(out, host))
    for locale, name, *hashes in rows:
        if found[name].setdefault(locale, hashes) != hashes:
            found[name][locale] = ["two answers", "two answers"]
    wrong = [f"{name} left nothing for {locale}"
             for name in wanted for locale in LOCALES if locale not in found[name]]
    for locale in LOCALES:
        texts, keys = found["C"][locale]
        print(f"{locale}: order {texts[:16]}, keys {keys[:16]}")
        for name, rows_of in found.items():
            got = rows_of.get(locale, [texts, keys])
            if got[0] != texts:
                wrong.append(f"{name} has another order for {locale} than C: {got[0][:16]}")
            if got[1] not in (keys, None):
                wrong.append(f"{name} has other keys for {locale} than C: {got[1][:16]}")
    for text in wrong:
        print(f"FAILED  {text}")
    print(f"took part: {'; '.join(name for name in found if found[name])}")
    if absent:
        print(f"did not: {'; '.join(absent)}")
    return bool(wrong)


if __name__ == "__main__":
    if sys.argv[1:2] == ["locales"]:
        print(*LOCALES)
    elif sys.argv[1:2] == ["compare"] and len(sys.argv) > 4:
        sys.exit(compare(*sys.argv[2:]))
    else:
        sys.exit(__doc__)
