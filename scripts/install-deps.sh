#!/usr/bin/env bash
# Installs the Debian packages Trovix builds and tests with. Idempotent: packages already
# present are left alone, and nothing is asked of apt when everything is there.
set -euo pipefail

packages=(
  build-essential cmake pkg-config ninja-build
  # the Debian package: dpkg-shlibdeps computes its dependencies, file tells it the programs
  dpkg-dev file
  clang libclang-rt-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libicu-dev libpcre2-dev libsqlite3-dev libfmt-dev
  libarchive-dev libpoppler-cpp-dev libxml2-dev libuchardet-dev libseccomp-dev
  libexiv2-dev libtag1-dev libssl-dev
  # the index keeps the text it holds compressed (deflate)
  zlib1g-dev
  # Word, Excel and PowerPoint 97-2003 (compound files), in the extraction helper only
  libgsf-1-dev
  # mail in the extraction helper; compressors the tests make .bz2/.xz/.zst files with
  libgmime-3.0-dev bzip2 xz-utils zstd
  # WordPerfect, Works and old Macintosh word processors in the extraction helper (librevenge);
  # wpd2text reads the same files for the tests
  librevenge-dev libwpd-dev libwps-dev libmwaw-dev libwpd-tools
  # the desktop program: Qt 6 widgets, speech, and a font (offscreen Qt draws no text without one)
  qt6-base-dev libqt6svg6 libespeak-ng-dev espeak-ng-data fonts-dejavu-core
  # the desktop program's accessibility tree, driven over AT-SPI as a screen reader would: a
  # virtual X server, a session bus, the AT-SPI registry and its Python binding (tests only;
  # the offscreen platform exposes no tree)
  xvfb dbus-daemon at-spi2-core python3-pyatspi
  # the tests' lister plugin draws with Xlib; xwininfo finds its window in the quick view's
  # pane (tests only)
  libx11-dev x11-utils
  # the picture map: a web view for the map page and the channel between page and program
  qt6-webengine-dev qt6-webchannel-dev
  # the quick view's media player (its FFmpeg back end plays MP3 and FLAC)
  qt6-multimedia-dev
  # file-system UUIDs of mounted drives (the index's catalogues); mkfs.vfat for the tests'
  # removable-drive images (mkfs.ext4 comes with e2fsprogs)
  libblkid-dev dosfstools e2fsprogs
  # NTFS images for the volume table tests: mkntfs, ntfsls and libntfs-3g (tests only)
  ntfs-3g ntfs-3g-dev
  # a FUSE file system the tests build and mount, which hangs on purpose like a network mount
  # whose server is gone (tests only); fuse3 brings fusermount3
  libfuse3-dev fuse3
  # independent tools the tests and benchmarks compare against
  poppler-utils unzip zip libarchive-tools ripgrep fd-find libimage-exiftool-perl mediainfo osslsigncode
  antiword catdoc
  # the shared index of file servers: the client library, and the server the tests start in a
  # temporary folder (pg_trgm ships in postgresql-15 itself on Debian 12: no contrib package)
  libpq-dev postgresql-15
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}" >&2
if [ "$(id -u)" -eq 0 ]; then
  sudo=()
elif command -v sudo >/dev/null 2>&1; then
  sudo=(sudo)
else
  echo "install-deps: missing packages (${missing[*]}) and neither root nor sudo" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
apt_opts=(-o DPkg::Lock::Timeout=600 -y -q)
"${sudo[@]}" apt-get "${apt_opts[@]}" update >/dev/null || true
"${sudo[@]}" apt-get "${apt_opts[@]}" install --no-install-recommends "${missing[@]}"
