#!/usr/bin/env bash
# The library exports the public operations and nothing else of ours by accident.
set -euo pipefail
library="$1"
symbols=$(nm -D --defined-only "$library" | awk '{print $3}')
stray=$(printf '%s\n' "$symbols" | grep -v -E '^(ovd[A-Za-z0-9_]*|DLL_OVD_3DIF)$' || true)
if [ -n "$stray" ]; then
  echo "unexpected exports:"; printf '%s\n' "$stray"; exit 1
fi
for name in ovd3dInverseFilter DLL_OVD_3DIF ovd3dInverseFilterDetectSA \
            ovdInitStructInvFilterOpsStd ovdInitStructInvFilterOpsExp \
            ovd3dRestore ovdInitStructIterativeOps ovdGetLastErrorMessage \
            ovdInitStructPsfModel ovdWriteTheoreticalPsfModel ovd3dRestoreWithPsfModel \
            ovd3dInverseFilterDetectSAWithPsfModel ovdInitStructSASearch \
            ovd3dInverseFilterDetectSAWithSearch; do
  grep -qx "$name" <<<"$symbols" || { echo "missing export $name"; exit 1; }
done
