# Shell functions of ./run, ./test and .ci/run: packages and builds. Everything that they print goes
# to stderr, and nothing is printed while nothing takes long.

readonly PROJECT_DIR=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

readonly BUILD_PACKAGES="g++ cmake ninja-build pkg-config python3 libfmt-dev libcli11-dev
    nlohmann-json3-dev libpcap-dev libsystemd-dev nettle-dev
    libncurses-dev"
readonly TEST_PACKAGES="libgtest-dev libgmock-dev python3-pyte"
readonly BENCH_PACKAGES="libbenchmark-dev libabsl-dev"
readonly FUZZ_PACKAGES="clang"
readonly CHECK_PACKAGES="clang-format clang-tidy"

# quietly WHAT COMMAND...: runs the command with its output in a log. What takes longer than two
# seconds is announced and shows its latest line; what fails shows its log.
quietly() {
    local what=$1 log status=0 waited=0 pid
    shift
    log=$(mktemp)
    "$@" >"$log" 2>&1 </dev/null &
    pid=$!
    while kill -0 "$pid" 2>/dev/null; do
        sleep 0.2
        waited=$((waited + 1))
        if [ "$waited" -eq 10 ]; then
            echo "$what ..." >&2
        elif [ "$waited" -gt 10 ] && [ -t 2 ] && [ $((waited % 5)) -eq 0 ]; then
            printf '\r\033[K  %s' "$(tail -n 1 "$log" | tr -cd '[:print:]' | cut -c 1-76)" >&2
        elif [ "$waited" -gt 10 ] && [ $((waited % 100)) -eq 0 ]; then
            echo "  $(tail -n 1 "$log" | tr -cd '[:print:]' | cut -c 1-96)" >&2
        fi
    done
    wait "$pid" || status=$?
    [ "$waited" -gt 10 ] && [ -t 2 ] && printf '\r\033[K' >&2
    if [ "$status" -ne 0 ]; then
        cat "$log" >&2
        echo "$what: failed" >&2
    fi
    rm -f "$log"
    return "$status"
}

# need_packages NAME...: installs those Debian packages that are missing.
need_packages() {
    local missing=() package root=()
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q '^install ok installed$' ||
            missing+=("$package")
    done
    [ "${#missing[@]}" -eq 0 ] && return 0
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "Missing packages: ${missing[*]}. Install them, or run this as root." >&2
            return 1
        fi
        root=(sudo)
    fi
    quietly "Reading package lists" "${root[@]}" apt-get -q update || return
    quietly "Installing ${missing[*]}" "${root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -q --no-install-recommends "${missing[@]}"
}

# build_preset PRESET [TARGET...]: configures when that was not done yet, and builds.
build_preset() {
    local preset=$1
    shift
    if [ ! -f "$PROJECT_DIR/build/$preset/build.ninja" ]; then
        quietly "Configuring ($preset)" cmake -S "$PROJECT_DIR" --preset "$preset" || return
    fi
    local targets=()
    [ $# -gt 0 ] && targets=(--target "$@")
    quietly "Building ($preset)" cmake --build "$PROJECT_DIR/build/$preset" "${targets[@]}"
}
