# Shared by the project's scripts: locating the tree and installing what the
# build needs on a fresh Debian 12 machine.

AOSTORE_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
AOSTORE_JOBS="${AOSTORE_JOBS:-$(nproc 2>/dev/null || echo 2)}"

# Packages the build and the tests need, by the command or file that proves
# each is present.
aostore_missing_packages() {
  local missing=()
  command -v cmake >/dev/null 2>&1 || missing+=(cmake)
  command -v g++ >/dev/null 2>&1 || missing+=(g++)
  command -v ninja >/dev/null 2>&1 || missing+=(ninja-build)
  command -v pkg-config >/dev/null 2>&1 || missing+=(pkg-config)
  [ -f /usr/include/gtest/gtest.h ] || missing+=(libgtest-dev)
  [ -f /usr/include/openssl/evp.h ] || missing+=(libssl-dev)
  for extra in "$@"; do
    case "$extra" in
      sqlite) [ -f /usr/include/sqlite3.h ] || missing+=(libsqlite3-dev) ;;
      benchmark) [ -f /usr/include/benchmark/benchmark.h ] || missing+=(libbenchmark-dev) ;;
      clang) command -v clang++ >/dev/null 2>&1 || missing+=(clang)
             [ -d /usr/lib/llvm-14/lib/clang ] && ls /usr/lib/llvm-14/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a >/dev/null 2>&1 || missing+=(libclang-rt-14-dev) ;;
      *) command -v "$extra" >/dev/null 2>&1 || missing+=("$extra") ;;
    esac
  done
  echo "${missing[@]}"
}

# Installs missing packages when running as root with apt-get; otherwise
# prints the exact command and fails.
aostore_ensure_packages() {
  local missing
  missing="$(aostore_missing_packages "$@")"
  [ -z "$missing" ] && return 0
  if [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null 2>&1; then
    echo "Installing: $missing" >&2
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq >/dev/null && apt-get install -y -qq $missing >/dev/null || {
      echo "apt-get could not install: $missing" >&2
      return 1
    }
    return 0
  fi
  echo "Missing build dependencies. Install them with:" >&2
  echo "  sudo apt-get install -y $missing" >&2
  return 1
}

# aostore_build DIR [cmake args...]: configures and builds into DIR.
aostore_build() {
  local dir="$1"
  shift
  local launcher=()
  command -v ccache >/dev/null 2>&1 && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  cmake -S "$AOSTORE_ROOT" -B "$dir" -G Ninja "${launcher[@]}" "$@" >/dev/null &&
    cmake --build "$dir" -j "$AOSTORE_JOBS"
}
