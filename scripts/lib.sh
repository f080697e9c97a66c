# Shell functions that the scripts share. Source it; it sets `root` and `machine`, and stops the script at the first error.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
machine=$(uname -m)
cd "$root"

say() { printf '\n== %s\n' "$*"; }
fail() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

case $machine in
  x86_64 | aarch64) ;;
  *) fail "this machine is $machine; the scripts know x86_64 and aarch64" ;;
esac

# Runs a command as root, or says which one would be needed.
as_root() {
  if [[ $(id -u) -eq 0 ]]; then
    "$@"
  elif command -v sudo > /dev/null; then
    sudo "$@"
  else
    fail "needs root: $*"
  fi
}

# need PACKAGE...: installs Debian packages, those that are missing. Never asks anything.
need() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f '${Status}\n' "$package" 2> /dev/null | grep -q '^install ok installed$' || missing+=("$package")
  done
  [[ ${#missing[@]} -eq 0 ]] && return
  command -v apt-get > /dev/null || fail "not a Debian system; install the likes of: ${missing[*]}"
  say "Installing ${missing[*]}"
  as_root apt-get update -qq < /dev/null
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" < /dev/null
}

# What building takes, tests and benchmarks included.
install_build_tools() {
  need g++ cmake ninja-build ccache binutils pkg-config git python3 \
    libgtest-dev libbenchmark-dev libcli11-dev libdw-dev nlohmann-json3-dev clang golang-go \
    python3-jsonschema chromium-headless-shell
  if [[ $machine == x86_64 ]]; then
    need gcc-aarch64-linux-gnu g++-aarch64-linux-gnu libc6-dev-arm64-cross googletest
    fetch_libraries build/arm64 || say "No libraries for AArch64: sve-report is not built for it"
  fi
}

# Emulated AArch64 processors, with SVE and without. The static one executes programs that are started directly: it is
# deaf to LD_PRELOAD, which is meant for the program.
install_emulators() {
  need qemu-user
  [[ $machine == aarch64 ]] || need qemu-user-static
}

# Debian's packages for AArch64 by apt, with a state of its own under the directory $1, on a machine of any kind.
apt_for_arm64() {
  local place=$PWD/$1/apt
  shift
  mkdir -p "$place/state/lists/partial" "$place/cache/archives/partial"
  touch "$place/status"
  apt-get -qq -o APT::Architecture=arm64 -o APT::Architectures::=arm64 -o Dir::State="$place/state" \
    -o Dir::State::status="$place/status" -o Dir::Cache="$place/cache" -o Debug::NoLocking=1 \
    -o APT::Sandbox::User="$(id -un)" "$@" < /dev/null
}

# fetch_libraries DIRECTORY: what a cross build of sve-report links, below `root` there. Nothing is installed.
fetch_libraries() {
  local place=$1 package
  [[ -e $place/root ]] && return
  say "Fetching libraries for AArch64"
  apt_for_arm64 "$place" update || return 1
  (cd "$place" && apt_for_arm64 ../../"$place" download libdw1 libelf1 zlib1g liblzma5 libbz2-1.0) || return 1
  mkdir -p "$place/part"
  for package in "$place"/*.deb; do dpkg-deb -x "$package" "$place/part"; done
  # The parts that are named without /usr.
  cp -a "$place"/part/lib/. "$place/part/usr/lib/" && rm -rf "$place"/part/lib "$place"/*.deb
  mv "$place/part" "$place/root"
}

# fetch_kernel DIRECTORY: what scripts/test-kernel boots. Makes `vmlinuz` there, and `system.cpio`: the C library, a
# shell, its commands, and a debugger. Nothing is installed but the emulator. Returns 1 where something is not to be had.
fetch_kernel() {
  local place=$1 package
  (need qemu-system-arm cpio) || return 1
  [[ -e $place/system.cpio ]] && return
  say "Fetching a kernel and a system for the emulated machine"
  mkdir -p "$place"
  apt_for_arm64 "$place" update || return 1
  rm -rf "$place/root" "$place"/*.deb
  apt_for_arm64 "$place" install --no-install-recommends --download-only -y \
    bash busybox-static gdb libasan8 libstdc++6 || return 1
  package=$(apt_for_arm64 "$place" install --no-install-recommends -s linux-image-arm64 |
    sed -n 's/^Inst \(linux-image-[0-9][^ ]*\) .*/\1/p')
  (cd "$place" && apt_for_arm64 ../../"$place" download "$package") || return 1
  mkdir -p "$place/root"
  for package in "$place"/apt/cache/archives/*.deb; do dpkg-deb -x "$package" "$place/root"; done
  rm -rf "$place"/root/usr/share/{doc,man,info,locale,lintian,perl5} "$place"/apt/cache/archives/*.deb
  dpkg-deb --fsys-tarfile "$place"/linux-image-*.deb | tar -xO --wildcards './boot/vmlinuz-*' > "$place/vmlinuz"
  rm "$place"/linux-image-*.deb
  (cd "$place/root" && find . | cpio -o -H newc --quiet) > "$place/system.part"
  rm -rf "$place/root"
  mv "$place/system.part" "$place/system.cpio"
}

# What checks the packages, and makes a root of Debian to install them in.
install_package_tools() { need mmdebstrap lintian dpkg-dev; }

# What scripts/check-style runs. The output of clang-format differs between versions: .clang-format names the one.
install_style_tools() { need clang-format-14 clang-tidy-14 shellcheck; }

# With a compiler cache when there is one, unless the caller has chosen a launcher.
use_ccache() {
  command -v ccache > /dev/null || return 0
  export CMAKE_C_COMPILER_LAUNCHER=${CMAKE_C_COMPILER_LAUNCHER-ccache}
  export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
}

# The environment in which AArch64 programs on x86-64 meet a processor without SVE.
use_processor_without_sve() {
  export QEMU_CPU=neoverse-n1 QEMU_LD_PREFIX=/usr/aarch64-linux-gnu
}

# Lets AArch64 programs be started directly on x86-64, by registering the emulator with the kernel. Where that is not
# allowed it returns 1 and the callers go round it.
register_emulator() {
  [[ $machine == aarch64 ]] && return
  local registry=/proc/sys/fs/binfmt_misc emulator=/usr/bin/qemu-aarch64-static
  local run_as_root=()
  [[ $(id -u) -eq 0 ]] || run_as_root=(sudo -n)
  if [[ ! -e $registry/register ]]; then
    "${run_as_root[@]}" mount -t binfmt_misc binfmt_misc $registry 2> /dev/null || true
  fi
  if ! grep -qsx "interpreter $emulator" $registry/*; then
    local name=qemu-aarch64
    [[ -e $registry/$name ]] && name=qemu-aarch64-static  # the last one registered is asked first
    local bytes='\x7fELF\x02\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\xb7\x00'
    local mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
    printf ':%s:M::%s:%s:%s:PF' $name "$bytes" "$mask" $emulator 2> /dev/null |
      "${run_as_root[@]}" tee $registry/register > /dev/null 2>&1 || true
  fi
  grep -qsx "interpreter $emulator" $registry/*
}

jobs=$(nproc)

# The emulated processor that has SVE at $1 bits, for qemu-aarch64's -cpu.
processor_with_sve() { echo "max,sve$1=on,sve-default-vector-length=$(($1 / 8)),sme=off"; }

# What a build tree is configured for, in bits.
vector_bits() { sed -n 's/^SVE_VECTOR_BITS:.*=//p' "build/$1/CMakeCache.txt"; }

# build PRESET [TARGET...]
build() {
  local preset=$1
  shift
  local log=build/$preset-configure.log
  mkdir -p build
  say "Configuring preset $preset"
  cmake --preset "$preset" > "$log" 2>&1 || {
    cat "$log"
    fail "configuring preset $preset failed"
  }
  say "Building preset $preset"
  cmake --build --preset "$preset" -j"$jobs" ${1:+--target "$@"} < /dev/null
}
