#!/usr/bin/env bash
# Makes a folder of photograph-like JPEGs of 2 to 12 megapixels with
# ImageMagick, and transformed copies of every other one (turned by 90 or 180
# degrees, mirrored, or half size at JPEG quality 60).
#   bench/make_pictures.sh COUNT FOLDER [SEED] [JOBS]
# COUNT originals are made; the folder then holds COUNT + COUNT/2 files.
# Files already there are kept, so an interrupted run can be continued.
set -euo pipefail
count=${1:?count}
folder=${2:?folder}
seed=${3:-1}
jobs=${4:-2}
mkdir -p "$folder"
sizes=(1632x1224 2048x1536 2592x1944 3264x2448 4000x3000)
make_one() {
  local i=$1 folder=$2 seed=$3
  local sizes=(1632x1224 2048x1536 2592x1944 3264x2448 4000x3000)
  local size=${sizes[$(((i * 7 + seed) % 5))]}
  local f
  f=$(printf '%s/photo%05d.jpg' "$folder" "$i")
  if [ ! -s "$f" ]; then
    # A small plasma scaled up keeps the generation fast and the picture smooth
    # like a photograph; a little noise gives the encoder real detail.
    convert -size 400x300 -seed $((seed * 100003 + i)) plasma:fractal -resize "${size}!" \
      -attenuate 0.3 +noise Uniform -quality 90 "$f.tmp.jpg" && mv "$f.tmp.jpg" "$f"
  fi
  if ((i % 2 == 0)); then
    local c
    c=$(printf '%s/copy%05d.jpg' "$folder" "$i")
    [ -s "$c" ] && return 0
    case $(((i / 2) % 4)) in
      0) convert "$f" -rotate 90 -quality 90 "$c.tmp.jpg" ;;
      1) convert "$f" -rotate 180 -quality 90 "$c.tmp.jpg" ;;
      2) convert "$f" -flop -quality 90 "$c.tmp.jpg" ;;
      3) convert "$f" -resize 50% -quality 60 "$c.tmp.jpg" ;;
    esac
    mv "$c.tmp.jpg" "$c"
  fi
}
export -f make_one
seq 0 $((count - 1)) | xargs -P "$jobs" -I{} bash -c 'make_one "$@"' _ {} "$folder" "$seed"
ls "$folder" | grep -c '\.jpg$'
