"""Long tests of the package, which hosts/python/check runs:
    rows.py order ROOT HOST_ORDER KOVA FILE    the strings of a file: order and keys as in C
    rows.py speed ROOT FILE                    sorting them, beside the C library and ICU
    rows.py pandas ROOT FILE                   sorting a column
"""
import locale
import pathlib
import subprocess
import sys
import time

import kova

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "common"))
import orders  # noqa: E402


def lines_of(file):
    with open(file, encoding="utf-8", newline="\n") as f:
        return f.read().split("\n")[:-1]


def order(root, host_order, command, file):
    words = lines_of(file)
    for name in orders.LOCALES:
        loc = kova.Locale(name, root=root)
        keys = sorted((loc.key(word), word) for word in words)
        orders.note(name, "Python", [word for _, word in keys], [key.hex() for key, _ in keys])
        mine = "".join(f"{key.hex()}\t{word}\n" for key, word in keys)
        with open(file, "rb") as f:
            in_c = subprocess.run([host_order, root, loc.spec], stdin=f, check=True,
                                  stdout=subprocess.PIPE).stdout.decode()
        if mine != in_c:
            sys.exit(f"{name}: keys or order differ from those of C")
        sorted_there = subprocess.run([command, "sort", "--root", root, "-l", name, file],
                                      check=True, stdout=subprocess.PIPE).stdout.decode()
        if sorted_there.split("\n")[:-1] != sorted(words, key=loc.key):
            sys.exit(f"{name}: the order differs from that of kova sort")
        print(f"{name}: {len(words)} strings, order and keys as in C and by kova sort")


def timed(words, key):
    """Seconds of processor time of sorting, and of making the keys alone: medians of three."""
    rounds = []
    for _ in range(3):
        start = time.process_time()
        sorted(words, key=key)
        middle = time.process_time()
        for word in words:
            key(word)
        rounds.append((middle - start, time.process_time() - middle))
    return [sorted(column)[1] for column in zip(*rounds)]


def speed(root, file):
    words = lines_of(file)
    locale.setlocale(locale.LC_COLLATE, "de_DE.UTF-8")
    makers = {"kova": kova.Locale("de_DE", root=root).key, "locale.strxfrm": locale.strxfrm}
    try:
        import icu
        makers["PyICU"] = icu.Collator.createInstance(icu.Locale("de_DE")).getSortKey
    except ImportError:
        print("PyICU is not installed")
    times = {name: timed(words, key) for name, key in makers.items()}
    for name, (whole, keys) in times.items():
        print(f"{len(words)} strings, {name}: sorted {whole:.2f} s, {whole / times['kova'][0]:.2f} "
              f"times ours; keys {keys:.2f} s, {keys / times['kova'][1]:.2f} times ours")


def pandas(root, file):
    import pandas as pd
    words = lines_of(file)
    loc = kova.Locale("sv_SE", root=root)
    frame = pd.DataFrame({"name": words})
    by_key = frame.sort_values("name", key=lambda column: column.map(loc.key))
    if list(by_key["name"]) != sorted(words, key=loc.key):
        sys.exit("pandas sorts in another order")
    print(f"pandas {pd.__version__}: {len(words)} rows in order")


if __name__ == "__main__":
    {"order": order, "speed": speed, "pandas": pandas}[sys.argv[1]](*sys.argv[2:])
