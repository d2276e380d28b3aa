#!/bin/bash -eu
# Builds the fuzzers for a service that runs them: into $OUT, with $CC and $CXX, their flags and
# $LIB_FUZZING_ENGINE, each with its first inputs and dictionary, and beside them a compiled data root
# with which they start. For address and undefined; packages: cmake, ninja-build, googletest,
# libcli11-dev, nlohmann-json3-dev, zlib1g-dev, locales, perl, python3.
#   SRC=/src/kova OUT=/out WORK=/work CC=clang CXX=clang++ LIB_FUZZING_ENGINE=-fsanitize=fuzzer \
#   CFLAGS='-O1 -g -fsanitize=address,fuzzer-no-link' CXXFLAGS="$CFLAGS" fuzz/build.sh
here=$(cd "$(dirname "$0")/.." && pwd)
work=${WORK:-$here/build/fuzz-service}
jobs=$(nproc)
: "${OUT:?}" "${CC:=clang}" "${CXX:=clang++}" "${LIB_FUZZING_ENGINE:=-fsanitize=fuzzer}"
export CC CXX

zlib=$(find /usr/lib /usr/lib64 -name libz.a -print -quit 2>/dev/null) # the image that runs them has none
cmake -S "$here" -B "$work/fuzz" -G Ninja -DCMAKE_BUILD_TYPE=None -DKOVA_FUZZ=ON -DKOVA_ICU=OFF \
    -DKOVA_GTEST_SOURCE=ON -DKOVA_FUZZ_ENGINE="$LIB_FUZZING_ENGINE" ${zlib:+-DZLIB_LIBRARY="$zlib"}
cmake --build "$work/fuzz" -j "$jobs" --target all command_fuzz

# The compiler of the data is built without the flags of fuzzing, by the system's own compiler.
env -u CC -u CXX -u CFLAGS -u CXXFLAGS cmake -S "$here" -B "$work/tools" -G Ninja \
    -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -DKOVA_EXAMPLES=OFF -DKOVA_SQLITE=OFF -DKOVA_PYTHON=OFF
cmake --build "$work/tools" -j "$jobs" --target kovac_command
"$here/cmake/compile_data" "$work/tools/bin/kovac" "$work/root"
rm -rf "$OUT/root" "$work/corpus"
cp -r "$work/root" "$OUT/root"

"$here/fuzz/make_corpus" "$work/corpus" "$work/root"
for fuzzer in "$work"/fuzz/bin/*_fuzz; do
    name=$(basename "$fuzzer")
    cp "$fuzzer" "$OUT/"
    (cd "$work/corpus/$name" && python3 -m zipfile -c "$OUT/${name}_seed_corpus.zip" ./*)
    [ ! -f "$here/fuzz/$name.dict" ] || cp "$here/fuzz/$name.dict" "$OUT/"
done
