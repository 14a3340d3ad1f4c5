# shellcheck shell=bash
# For the scripts of this folder, which source it first: . "$(dirname "$0")/common.sh"
#
# Goes to the project's folder; `caller` is the folder before. With --help alone it prints the comment
# at the script's head. A signal ends the script through its EXIT trap.
set -euo pipefail
# shellcheck disable=SC2034
caller=$PWD
cd -P "$(dirname "$0")/.."

trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

usage() {
  sed -n '2,/^[^#]/ s/^# \{0,1\}//p' "scripts/${0##*/}"
}

fail() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

# For arguments that the script does not take.
refuse_arguments() {
  usage >&2
  exit 2
}

# read_options OPTIONS ARGUMENT...: sets the variable of each given option to its value, or to "yes".
# OPTIONS are for getopt: picture:,once
read_options() {
  local options=$1 parsed
  parsed=$(getopt -n "${0##*/}" -o '' -l "$options" -- "${@:2}") || refuse_arguments
  eval "set -- $parsed"
  while [[ $1 != -- ]]; do
    if [[ ,$options, == *",${1#--}:,"* ]]; then
      printf -v "${1#--}" %s "$2"
      shift
    else
      printf -v "${1#--}" yes
    fi
    shift
  done
  (($# == 1)) || refuse_arguments
}

# configure FOLDER ARGUMENT...: prepares a build there. CMake refuses the settings of a moved checkout,
# so they go first.
configure() {
  local fresh=
  grep -qsFx "CMAKE_HOME_DIRECTORY:INTERNAL=$PWD" "$1/CMakeCache.txt" || fresh=--fresh
  cmake $fresh -B "$@" >/dev/null
}

# build FOLDER [ARGUMENT...]: builds there.
build() {
  cmake --build "$1" --parallel "$(nproc)" "${@:2}"
}

if [[ $* == --help ]]; then
  usage
  exit
fi
