"""Builds the extension module against an installed library: the one that pkg-config knows, or else
the one that the compiler finds (CPPFLAGS and LDFLAGS name other places)."""
import glob
import subprocess

from setuptools import Extension, setup


def flags(option):
    try:
        return subprocess.run(["pkg-config", option, "kova"], check=True, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout.split()
    except (OSError, subprocess.CalledProcessError):
        return []


# A library outside the system's folders is found where it was when the module was built.
folders = [flag[2:] for flag in flags("--libs-only-L")]

setup(
    ext_modules=[Extension(
        "kova._kova", sorted(glob.glob("src/*.c")), depends=glob.glob("src/*.h"),
        include_dirs=[flag[2:] for flag in flags("--cflags-only-I")],
        library_dirs=folders, runtime_library_dirs=folders, libraries=["kova"],
        extra_compile_args=["-std=c11", "-fvisibility=hidden"], py_limited_api=True)],
    options={"bdist_wheel": {"py_limited_api": "cp311"}},
)
