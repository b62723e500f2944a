#!/usr/bin/env bash
# Installs the Debian packages that building, testing and benchmarking Vrok need.
# Idempotent and non-interactive; runs as root or through sudo.
set -euo pipefail

packages=(
  build-essential cmake pkg-config ccache
  # clang with libFuzzer and the sanitizer runtimes, for scripts/fuzz.sh.
  clang libclang-rt-14-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libfftw3-dev libsndfile1-dev libsamplerate0-dev libsmf-dev
  libtinyxml-dev libcli11-dev nlohmann-json3-dev
  libagg-dev libfreetype-dev libpng-dev libx11-dev libxext-dev libxtst-dev libfontconfig-dev
  fonts-liberation fonts-dejavu-core xvfb xauth xdotool
  # Live playing: JACK's client library, RtAudio and RtMidi for ALSA; the JACK server for
  # the live tests, which run it on its dummy driver.
  libjack-jackd2-dev librtaudio-dev librtmidi-dev libasound2-dev jackd2
  # The tracker the machine libraries are tested in (tests labelled "host").
  buzztrax gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good python3
  # The LV2 plug-ins: headers, the lilv test host, Debian's LV2 tools (lv2_validate needs
  # sordi), jalv on a JACK server with the dummy driver, and xwininfo to see the editor
  # embedded in jalv.gtk3.
  lv2-dev liblilv-dev lilv-utils sordi jalv jackd2 x11-utils
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "install-deps: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
  sudo="sudo -n"
fi
echo "install-deps: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
# jackd2 asks whether to enable realtime priority; answer no rather than wait for a reply.
echo "jackd2 jackd/tweak_rt_limits boolean false" | $sudo debconf-set-selections
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
