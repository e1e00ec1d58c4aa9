#!/usr/bin/env bash
# A GigE Vision camera end to end: Aravis's camera simulator streams on the loopback interface to
# aravissrc, velqorademosaic converts, and every output frame must equal velqora-convert's conversion
# of the raw frame it came from (the raw stream is teed to a file). A few frames per Bayer phase, each
# phase through another method and output format; the simulator is stopped by its process id.
# Usage: camera.sh PLUGIN_DIR VELQORA_CONVERT WORK_DIR
set -euo pipefail
plugin_dir=$1; convert=$2; work=$3
frames=3 width=320 height=240
rm -rf "$work"; mkdir -p "$work"; cd "$work"
export GST_PLUGIN_PATH=$plugin_dir GST_REGISTRY=$work/registry.bin

arv-fake-gv-camera-0.8 -i lo > camera.log 2>&1 &
camera=$!
trap 'kill "$camera" 2>/dev/null || true; wait "$camera" 2>/dev/null || true' EXIT
sleep 1

# With CAP_NET_RAW (as root) Aravis reads the stream through a packet socket that sees nothing on the
# loopback interface: the pipeline runs without that capability.
drop=()
if [ "$(id -u)" = 0 ]; then drop=(setpriv --bounding-set=-net_raw --inh-caps=-net_raw); fi

failed=0
# caps format, PFNC name, method, GStreamer output format, the library's output format
while read -r caps pfnc method gstout libout; do
  if ! timeout 60 "${drop[@]}" gst-launch-1.0 -q aravissrc camera-name=Aravis-Fake-GV01 num-buffers=$frames \
      ! video/x-bayer,format="$caps",width=$width,height=$height ! tee name=t \
      ! queue ! velqorademosaic method="$method" threads=2 ! video/x-raw,format="$gstout" \
      ! filesink location="$caps.out" t. ! queue ! filesink location="$caps.raw" > "$caps.log" 2>&1; then
    echo "camera: $caps: the pipeline failed"; cat "$caps.log"; failed=1; continue
  fi
  frame=$((width * height)); raw_size=$(stat -c %s "$caps.raw")
  [ "$raw_size" = $((frames * frame)) ] || { echo "camera: $caps: $raw_size raw bytes"; failed=1; continue; }
  split -d -b "$frame" "$caps.raw" "$caps.frame."
  : > "$caps.expected"
  for f in "$caps".frame.*; do
    "$convert" -f "$pfnc" -W "$width" -H "$height" -m "$method" --output "$libout" -j 1 "$f" -o "$f.out.raw" > /dev/null
    cat "$f.out.raw" >> "$caps.expected"
  done
  if cmp -s "$caps.out" "$caps.expected"; then
    echo "camera: $caps ${width}x$height, $frames frames, $method to $gstout: equal to the library's conversion"
  else
    echo "camera: $caps: output differs from the library's conversion ($(stat -c %s "$caps.out") bytes vs $(stat -c %s "$caps.expected"))"
    failed=1
  fi
done <<'EOF'
rggb BayerRG8 edge BGRx BGRA8
grbg BayerGR8 bilinear RGB RGB8
gbrg BayerGB8 nearest GRAY8 Mono8
bggr BayerBG8 edge RGBP RGB8_Planar
EOF
exit $failed
