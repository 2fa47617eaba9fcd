# Shared by the commands here: installs Debian packages that are missing and builds in silence.
# Sourced, not run; expects the working directory to be the top of the tree.

# What was compiled before, in any clone, comes out of the cache, where there is one.
if command -v ccache >/dev/null; then
  export CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
fi

# need COMMAND-OR-FILE PACKAGE ...: installs every PACKAGE whose command or file is missing.
need() {
  local missing=()
  while [ $# -gt 0 ]; do
    case $1 in
      /*) [ -e "$1" ] || missing+=("$2") ;;
      *) command -v "$1" >/dev/null || missing+=("$2") ;;
    esac
    shift 2
  done
  [ ${#missing[@]} -eq 0 ] || install_packages "${missing[@]}"
}

install_packages() {
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
      echo "velmo needs these Debian packages: $*" >&2
      echo "Install them as root (apt-get install $*), then run this again." >&2
      exit 1
    fi
    as_root=(sudo)
  fi
  if ! command -v apt-get >/dev/null; then
    echo "velmo needs these packages (Debian's names): $*" >&2
    echo "There is no apt-get here; install them by hand, then run this again." >&2
    exit 1
  fi
  echo "Installing: $*" >&2
  silently "${as_root[@]}" apt-get update
  silently "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "$@"
}

# silently COMMAND ...: shows the command's output only when it fails.
silently() {
  local output
  if ! output=$("$@" 2>&1); then
    printf '%s\n' "$output" >&2
    echo "Failed: $*" >&2
    exit 1
  fi
}

need_compiler() {
  need cmake cmake g++ g++ make make /usr/include/numa.h libnuma-dev \
    /usr/include/CLI/CLI.hpp libcli11-dev /usr/include/nlohmann/json.hpp nlohmann-json3-dev \
    /usr/share/javascript/chart.js/chart.min.js libjs-chart.js \
    /usr/include/boost/math/distributions/students_t.hpp libboost-math-dev \
    /usr/include/simdjson.h libsimdjson-dev
}

build() {
  local dir=$1
  shift
  silently cmake --build "$dir" -j "$(nproc)" "$@"
}

# run_tests DIR [ctest arguments]: every line of ctest when a test fails, its summary otherwise.
run_tests() {
  local dir=$1 output status=0
  shift
  output=$(ctest --test-dir "$dir" --output-on-failure -j "$(nproc)" "$@" 2>&1) || status=$?
  if [ "$status" -eq 0 ]; then
    grep -E 'tests passed|No tests' <<<"$output"
  else
    printf '%s\n' "$output" >&2
  fi
  return "$status"
}

# shorten_calibration PROGRAM: the clock calibration of a classic command reads the clock 200 million
# times, which takes an emulated processor a minute and sanitizers half of one; in this copy of velmo
# Configurator::clock_test_count is 500,000 instead of 50,000,000.
shorten_calibration() {
  perl -0777 -pi -e 's/\x80\xf0\xfa\x02/\x20\xa1\x07\0/g == 1 or die "clock_test_count is not there once"' "$1"
}
