#!/usr/bin/env bash
# Runs the screen tests on a desktop without a compositor, where nothing blends, and those of its pictures and windows on one with it.
set -eu
desktop=$(dirname "$0")/../support/with-desktop
"$desktop" "$@" --gtest_filter=-GScreenComposited.*
VELMORA_TEST_COMPOSITED=1 "$desktop" --picom "$@" --gtest_filter=-GScreenServer.*
