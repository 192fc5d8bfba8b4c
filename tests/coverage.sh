#!/usr/bin/env bash
# Line coverage of the program's own folders by all tests: tests/coverage.sh [CTEST ARGUMENTS]. Builds build/coverage,
# runs the tests there and lists each file with the lines that none of them reached. Needs gcovr.
set -euo pipefail

root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
folder=$root/build/coverage

command -v gcovr >/dev/null || { echo "coverage: gcovr is not installed (package gcovr)" >&2; exit 1; }
mkdir -p "$folder"
# Children of unit tests end by _exit, which by itself leaves no counts. Some have no right or room to leave any.
cat >"$folder/countedExit.h" <<'HEADER'
#include <signal.h>
#include <unistd.h>
extern "C" void __gcov_dump();
[[noreturn]] inline void countedExit(int code) {
    signal(SIGXFSZ, SIG_IGN);
    __gcov_dump();
    _exit(code);
}
#define _exit countedExit
HEADER
[[ -f $folder/build.ninja ]] || cmake -S "$root" -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_FLAGS="--coverage -fprofile-update=atomic -include $folder/countedExit.h" -DCMAKE_CXX_FLAGS_DEBUG='-O1 -g' -DCCACHE_PROGRAM= >&2
ninja -C "$folder" >&2
find "$folder" -name '*.gcda' -delete
# Programs leave their counts beside their objects, as whichever user they run.
chmod -R a+rwX "$folder"

# Tests lay machines around the program on which the build folder can't be written. This one can be.
shims=$(mktemp -d)
trap 'rm -rf "$shims"' EXIT
bwrap=$(command -v bwrap || true)
cat >"$shims/bwrap" <<SHIM
#!/usr/bin/env bash
for ((i = 1; i <= \$#; ++i)); do
    [[ \${!i} == -- ]] && exec "$bwrap" "\${@:1:i-1}" --bind "$folder" "$folder" "\${@:i}"
done
exec "$bwrap" "\$@"
SHIM
chmod +x "$shims/bwrap"

PATH=$shims:$PATH ctest --test-dir "$folder" --no-tests=error --output-on-failure --parallel "$(nproc)" "$@" >&2 ||
    echo "coverage: some tests failed" >&2
cd "$root"
gcovr --root . --exclude '(build|tests|benchmarks|simulator)/' --exclude-throw-branches --txt - "$folder"
