# shellcheck shell=bash disable=SC2034
# Shared by the scripts: the packages that the project stands on, and the steps of a build. Sourced, not run.

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
logs="$root/build/logs"

# Debian's names. What the libraries and krrender need, to compile and to draw without a display:
build_packages=(
    g++ cmake ninja-build ccache pkg-config
    libopenscenegraph-dev libegl-dev libgl-dev libglx-dev libgbm-dev libglu1-mesa-dev libx11-dev
    libboost-dev libboost-date-time-dev libxml2-dev libassimp-dev libssl-dev zlib1g-dev
    libpng-dev libdeflate-dev libjpeg62-turbo-dev libtiff-dev
    libeigen3-dev libqhull-dev libmeshoptimizer-dev libcli11-dev libspdlog-dev nlohmann-json3-dev
    libgl1-mesa-dri libegl-mesa0 libglx-mesa0 fonts-liberation2
)
# What the tests need besides:
# (then what the Python module is made of and tested with; the last line for the example of a Qt widget)
test_packages=(
    libgtest-dev liburdfdom-dev ffmpeg xvfb xauth python3
    python3-dev python3-numpy pybind11-dev python3-mypy python3-pip python3-setuptools python3-wheel
    qt6-base-dev libqt6opengl6-dev
)
# What the slower checks need besides:
check_packages=(clang clang-format clang-tidy lld libclang-rt-14-dev doxygen)
# What data sets are made with on many machines (tests/cluster; scripts/test does without):
cluster_packages=(slurmctld slurmd slurm-client munge parallel snakemake)

say() { printf '== %s\n' "$*"; }

fail()
{
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# ccache serves several copies of the tree from one cache, and needs a folder that it can write to.
export CCACHE_BASEDIR="$root" CCACHE_NOHASHDIR=1
if [ -z "${CCACHE_DIR:-}" ] && ! [ -w "${HOME:-/nonexistent}" ]; then
    export CCACHE_DIR="$root/build/ccache"
fi

# quietly NAME COMMAND...: keeps the output in a log and shows it only when the command fails.
quietly()
{
    local log="$logs/$1.log"
    shift
    mkdir -p "$logs"
    if ! "$@" >"$log" 2>&1; then
        tail -n 40 "$log" >&2
        fail "failed: $* (all of its output: $log)"
    fi
}

missing_packages()
{
    local package
    for package in "$@"; do
        if [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            printf '%s\n' "$package"
        fi
    done
}

# as_root COMMAND...: sudo asks for the password, where it needs one, on the terminal.
as_root()
{
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

# Turns apt's status lines (kind:package:percent:text) into a few lines of progress.
show_apt_progress()
{
    local kind package percent text step last=
    while IFS=: read -r kind package percent text; do
        case "$kind" in
        dlstatus) kind=downloaded ;;
        pmstatus) kind=installed ;;
        *) continue ;;
        esac
        step="$kind $((${percent%%.*} / 10 * 10)) %"
        if [ "$step" != "$last" ]; then
            printf '   %s\n' "$step"
            last="$step"
        fi
    done
}

# Status lines leave on standard output (sudo closes every descriptor above 2), the rest on standard error.
apt_install()
{
    as_root env DEBIAN_FRONTEND=noninteractive sh -c '
        exec 3>&1 1>&2
        exec apt-get -y -q -o APT::Status-Fd=3 -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 \
            install --no-install-recommends "$@"' apt "$@"
}

# install_packages PACKAGE...: installs what is missing, and nothing else.
install_packages()
{
    local missing log="$logs/install.log"
    if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
        say "This system has no apt-get; the build needs what Debian calls: $*"
        return 0
    fi
    mapfile -t missing < <(missing_packages "$@")
    [ "${#missing[@]}" -gt 0 ] || return 0

    if [ "$(id -u)" -ne 0 ] && ! command -v sudo >/dev/null; then
        fail "packages are missing and there is no sudo; as root, run: apt-get install ${missing[*]}"
    fi
    mkdir -p "$logs"
    say "Installing ${#missing[@]} packages and what they need: ${missing[*]}"
    quietly update as_root apt-get -q -o DPkg::Lock::Timeout=300 update
    if ! apt_install "${missing[@]}" 2>"$log" </dev/null | show_apt_progress; then
        tail -n 20 "$log" >&2
        fail "apt-get could not install the packages (all of its output: $log)"
    fi
}

# configure PRESET ARGUMENT...
configure()
{
    local preset="$1"
    shift
    say "Configuring build/$preset"
    (cd "$root" && quietly "configure-$preset" cmake --preset "$preset" "$@")
}

# build PRESET [--target TARGET]
build()
{
    local preset="$1"
    shift
    say "Building build/$preset"
    (cd "$root" && cmake --build --preset "$preset" "$@")
}

# Sums up ctest's JUnit report: GoogleTest's cases one by one, any other test as one case. A program that fails without
# naming a case (a crash, a leak, a time-out) counts as one failure, a test that says it cannot run here as skipped.
count_tests()
{
    awk '
        /^\t<testcase /               { status = $0; ok = skip = bad = google = 0 }
        /^\[  PASSED  \] [0-9]+ test/  { ok = $4; google = 1 }
        /^\[  SKIPPED \] [0-9]+ test/  { skip = $4 }
        /^\[  FAILED  \] [0-9]+ test/  { bad = $4 }
        /^\t<\/testcase>/ {
            if (status ~ / status="run">/) passed += google ? ok : 1
            else if (status ~ / status="notrun">/) skip = 1 # one that cannot start ends ctest with an error
            else { passed += ok; failed += bad ? bad : 1 }
            skipped += skip
        }
        END { printf "%d passed, %d failed, %d skipped\n", passed, failed, skipped }' "$1"
}

# run_tests PRESET [CTEST ARGUMENT...]: the last line is "N passed, N failed, N skipped".
run_tests()
{
    local preset="$1" status=0 counts report="$logs/tests-$1.xml"
    shift
    say "Testing build/$preset"
    mkdir -p "$logs"
    rm -f "$report"
    (cd "$root" && ctest --preset "$preset" --parallel "$(nproc)" --no-tests=error --output-junit "$report" \
        --test-output-size-passed 1000000 --test-output-size-failed 1000000 "$@") || status=$?
    [ -f "$report" ] || fail "ctest ran no test"
    counts="$(count_tests "$report")"
    # A failure that the report does not show as one still counts.
    if [ "$status" -ne 0 ]; then
        counts="${counts/ 0 failed/ 1 failed}"
    fi
    printf '%s\n' "$counts"
    return "$status"
}
