# shellcheck shell=bash
# How the scripts build, for each of them to source. A compiler takes several sources of a target at once, which makes a
# build from nothing three times as fast; BRICKFALL_UNITY=OFF in the environment gives every source an object of its own,
# as `cmake --preset release` by hand does.
export BRICKFALL_UNITY=${BRICKFALL_UNITY:-ON}
# A clone in another folder finds what ccache holds already, and so does a script with another locale.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=locale
