#!/usr/bin/env bash
# Runs the desktop tests on a desktop without a compositor and on one with it.
set -eu
desktop=$(dirname "$0")/../support/with-desktop
"$desktop" --trayer "$@"
VELMORA_TEST_COMPOSITED=1 "$desktop" --trayer --picom "$@"
