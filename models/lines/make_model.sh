#!/usr/bin/env bash
# Makes lines.qrtmodel of lines.onnx: ./make_model.sh QRT, where QRT is the built command-line tool.
#
# The kernels are those that every x86-64 processor runs and every build has; `qrt read` exchanges them for faster ones.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
readonly qrt=${1:?usage: make_model.sh QRT}
json=$(mktemp --suffix=.json)
trap 'rm -f "$json"' EXIT

"$qrt" import lines.onnx "$json" --name lines --input 'picture=1x1x32x?' --isa sse \
  --color gray --mean 127.5 --scale 0.00784313725 --verify
# Without a BLAS, for builds that have none.
sed -i -e 's/LSTM_SGEMM_SC_F32_M1/LSTM_SSE_SC_F32_M1/' \
  -e 's/Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1/Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1/' "$json"
"$qrt" convert "$json" lines.qrtmodel --round nearest
"$qrt" check lines.qrtmodel --input 1x32x320 >/dev/null

# What it reads of the samples, which tests compare.
for picture in samples/*.png; do
  printf '%s\t%s\n' "$(basename "$picture")" "$("$qrt" read "$picture" --isa sse --model lines.qrtmodel)"
done >samples/readings.txt
