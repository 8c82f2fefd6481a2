# SPDX-License-Identifier: GPL-3.0-or-later
# Sourced by ./run, ./test and .ci/run: installs what is missing and says what. Asks the package
# manager for nothing when all is there.

# What building, testing and making sample clips takes.
debian_packages=(g++ cmake ninja-build pkg-config libcli11-dev nlohmann-json3-dev libgtest-dev
  libbenchmark-dev libturbojpeg0-dev libjpeg-dev libjpeg-turbo-progs libraw-dev libexiv2-dev
  libimage-exiftool-perl libplist-dev libsystemd-dev dbus ffmpeg qt6-base-dev qt6-multimedia-dev
  qt6-svg-dev)
homebrew_packages=(cmake ninja pkgconf cli11 nlohmann-json googletest google-benchmark jpeg-turbo libraw
  exiv2 exiftool libplist ffmpeg qt6)
# What .ci/run takes besides.
debian_checking_packages=(clang-14 libclang-rt-14-dev clang-format-14 clang-tidy-14 clang-tools-14 appstream
  desktop-file-utils libxml2-utils)

as_root() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    echo "Installing packages needs root; run this once as root: $*" >&2
    return 1
  fi
}

install_debian() {
  local missing=() name
  for name in "$@"; do
    case $(dpkg-query -W -f='${Status}' "$name" 2>/dev/null) in
      *" installed") ;;
      *) missing+=("$name") ;;
    esac
  done
  [ ${#missing[@]} = 0 ] && return
  echo "Installing: ${missing[*]}"
  as_root apt-get update -qq
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    "${missing[@]}"
}

install_homebrew() {
  local present missing=() name
  present=$(brew list --formula -1)
  for name in "$@"; do
    grep -qx "$name" <<<"$present" || missing+=("$name")
  done
  [ ${#missing[@]} = 0 ] && return
  echo "Installing: ${missing[*]}"
  brew install --quiet "${missing[@]}"
}

install_packages() {
  if command -v dpkg-query >/dev/null; then
    install_debian "${debian_packages[@]}"
  elif command -v brew >/dev/null; then
    install_homebrew "${homebrew_packages[@]}"
  else
    echo "Packages are installed by themselves on Debian, Ubuntu and Macs with Homebrew (brew.sh)." >&2
    echo "Here, have these at hand: ${homebrew_packages[*]} and a C++20 compiler." >&2
  fi
}

# configure PRESET [OPTION…]: quiet unless it goes wrong.
configure() {
  local log
  log=$(cmake --preset "$@" 2>&1) || {
    printf '%s\n' "$log" >&2
    return 1
  }
}

# build PRESET [TARGET]
build() {
  cmake --build --preset "$1" ${2:+--target "$2"} -j"$(getconf _NPROCESSORS_ONLN)"
}
