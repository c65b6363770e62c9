#!/usr/bin/python3
"""Mutation check: does the test suite notice small, deliberate faults?

Each mutation is (file, exact original text, replacement, tests). The original text must
occur exactly once in the file, so every mutation applies the same way on every run and a
stale entry stops the check instead of silently testing nothing.

The check works on its own copy of the committed tree (git archive HEAD) under build-mutation/
with its build directory inside, so the working tree and build directories others use stay
untouched. The copy's build sits where a checkout's own build/ sits and uses ccache, so with
ccache's base_dir above both, unchanged sources come from the cache.
Per mutation: apply, rebuild only the targets its tests need, run those tests, revert.
A mutation is killed when a test fails; one that no longer compiles is counted apart
("build"), never as killed.

Usage: scripts/mutation_check.py [--keep] [--only N,M,...] [--rev REV]
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import time

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# Test groups: (targets to build, commands to run). Commands run in the build directory;
# {src} is the copied source tree. Unit binaries stop at their first failure.
GT = "--gtest_brief=1 --gtest_fail_fast"
def gtest(sub, filt=None):
    f = f" --gtest_filter='{filt}'" if filt else ""
    return ([f"test_{sub}"], [f"OVD_TEST_SOURCE_DIR={{src}} tests/test_{sub} {GT}{f}"])

PY = "PYTHONPATH={src}/python OVIDANE_LIBRARY=$PWD/libovdinf01.so /usr/bin/python3 {src}/tests/python/"
GROUPS = {
    "core": gtest("core"),
    "image": gtest("image"),
    "io": gtest("io"),
    "math": (["test_math", "fft_numpy_dump"],
             gtest("math")[1] + ["/usr/bin/python3 {src}/tests/math/fft_numpy_check.py tests/fft_numpy_dump"]),
    "decon": (["test_decon", "restore_run"],
              gtest("decon")[1] + [
                  "/usr/bin/python3 {src}/tests/decon/iterative_check.py tests/restore_run",
                  "/usr/bin/python3 {src}/tests/decon/inverse_filter_check.py tests/restore_run"]),
    "largevolume": gtest("largevolume"),
    "interface": gtest("interface"),
    "restore": gtest("interface", "IterativeRestore.*:LastErrorMessage.*"),
    "python": (["ovdinf01"], [PY + "test_api_errors.py", PY + "test_restore.py",
                              PY + "test_detect_sa.py", PY + "test_psf.py"]),
    "cli": (["ovd"], ["bash {src}/tests/tools/cli_errors_test.sh tools/ovd",
                      "bash {src}/tests/tools/cli_restore_test.sh tools/ovd",
                      "bash {src}/tests/tools/cli_output_safety_test.sh tools/ovd",
                      "bash {src}/tests/tools/cli_psf_test.sh tools/ovd"]),
}

# (file, original, replacement, test groups)
MUTATIONS = [
    # core
    ("src/core/cDeconLog.cpp", "(p.GetBool(line.key) ? 1 : 0)", "(p.GetBool(line.key) ? 0 : 1)", ["core"]),
    ("src/core/cDeconParameter.cpp", "if (value >= accepted.first && value <= accepted.last)",
     "if (value >= accepted.first && value < accepted.last)", ["core"]),
    ("src/core/cStatusUpdateHandler.cpp", "        if (answer != kContinue)\n            throw cCancelException();",
     "", ["core"]),
    ("src/core/cMessageSink.cpp", "        for (std::streamsize i = 0; i < count; ++i)",
     "        for (std::streamsize i = 1; i < count; ++i)", ["core"]),
    # image
    ("src/image/cMemoryManager.cpp", "if (oneBlock || blocks.size() == count)",
     "if (oneBlock || blocks.size() + 1 == count)", ["image"]),
    ("src/image/cMemoryManager.cpp", "return !block.locked && block.start && block.size == size;",
     "return !block.locked && block.start && block.size >= size;", ["image"]),
    ("src/image/cMemoryManager.cpp", "        if (pass > 0)\n            ReleaseAllUnusedRegions();",
     "        if (pass > 1)\n            ReleaseAllUnusedRegions();", ["image"]),
    ("src/image/cOvdImage.cpp", "const uint32_t width = last - first + 1;", "const uint32_t width = last - first;", ["image"]),
    # io
    ("src/io/cUnmanagedRawFileReader.cpp", "if (x1 >= GetWidth() || uint64_t{y0} + rows > GetHeight())",
     "if (x1 > GetWidth() || uint64_t{y0} + rows > GetHeight())", ["io"]),
    ("src/io/cUnmanagedRawFileReader.cpp", "std::min<std::size_t>(columns, available - first)",
     "std::min<std::size_t>(columns, available - first + 1)", ["io"]),
    ("src/io/cUnmanagedRawFileWriter.cpp", "    if (mFile.Write(source, bytes) < bytes)",
     "    if (mFile.Write(source, bytes) < bytes - 1)", ["io"]),
    ("src/io/cUnmanagedRawFileWriter.cpp", "const uint32_t rows = y1 - y0 + 1;",
     "const uint32_t rows = y1 - y0;", ["io"]),
    ("src/io/cTempFileGenerator.cpp", "while (mNames.size() > mark) {", "while (mNames.size() > mark + 1) {", ["io"]),
    # math
    ("src/math/cImageMathGeneric.cpp", "line += (p[x] >= low && p[x] < high) ? 1u : 0u;",
     "line += (p[x] >= low && p[x] <= high) ? 1u : 0u;", ["math"]),
    ("src/math/cImageMathGeneric.cpp", "m = p[x] > m ? p[x] : m;", "m = p[x] < m ? p[x] : m;", ["math"]),
    ("src/math/cImageMathGeneric.cpp", "return p >= t ? p : v * v * t;", "return p >= t ? p : v * t;", ["math", "decon"]),
    ("src/math/cImageMathGeneric.cpp", "float t = 0.1f * std::min(maximum, std::fabs(m));",
     "float t = 0.2f * std::min(maximum, std::fabs(m));", ["math", "decon"]),
    ("src/math/cImageMathGenericGeometry.cpp", "return i == 0 || uint64_t{2} * i < n ? i : n - i;",
     "return i == 0 || i < n / 2 ? i : n - i;", ["math"]),
    ("src/math/cImageMathGenericGeometry.cpp", "at(e + 1 + i) = (1.0f - f) * vs + f * ve;",
     "at(e + 1 + i) = (1.0f - f) * ve + f * vs;", ["math", "decon"]),
    ("src/math/cImageMathGenericAnalysis.cpp", "const float inVolume = 6 * beta + 1;",
     "const float inVolume = 6 * beta;", ["math", "decon"]),
    ("src/math/cImageMathGenericAnalysis.cpp", "const float updated = (b * r[x] * s6 + e[x]) / inVolume;",
     "const float updated = (b * r[x] * s6 - e[x]) / inVolume;", ["math", "decon"]),
    ("src/math/cFFTFFTW.cpp", "out[2 * i + 1] = (ai * br - ar * bi) * scale;",
     "out[2 * i + 1] = (ar * bi - ai * br) * scale;", ["math"]),
    # decon: the iterative classes and the inverse filter
    ("src/decon/cLineSearchAcceleration.cpp", "tmax = std::max(-1.0f / lowest, 1.0f);",
     "tmax = std::max(-2.0f / lowest, 1.0f);", ["decon"]),
    ("src/decon/cLineSearchAcceleration.cpp", "            if (!(value > best))\n                break;",
     "            if (!(value < best))\n                break;", ["decon"]),
    ("src/decon/cVectorExtrapolationAcceleration.cpp", "        if (alpha > 1.0f)\n            alpha = 1.0f;",
     "", ["decon"]),
    ("src/decon/cVectorExtrapolationAcceleration.cpp", "float alpha = lastSquare == 0.0 ? 0.0f : static_cast<float>(cross / lastSquare);",
     "float alpha = lastSquare == 0.0 ? 0.0f : static_cast<float>(lastSquare / cross);", ["decon"]),
    ("src/decon/cGoodsRoughnessNoiseSmoothing.cpp", "mBeta = factor * 0.0001f;", "mBeta = factor * 0.001f;", ["decon"]),
    ("src/decon/cGaussianNoiseSmoothing.cpp", "if (iteration % mInterval != 0)", "if (iteration % mInterval == 0)", ["decon"]),
    ("src/decon/cFlatSheetImageObjectFirstGuess.cpp", "math->SetImageToConstant(object, math->AverageImage(original));",
     "math->SetImageToConstant(object, 1.0f);", ["decon", "restore"]),
    ("src/decon/cIterativeDeconFramework.cpp", "return 100.0f / static_cast<float>(std::max<int64_t>(1, steps));",
     "return 50.0f / static_cast<float>(std::max<int64_t>(1, steps));", ["decon", "restore"]),
    ("src/decon/cDeconAlgorithm.h", "float PlaneDistanceInPixels() const { return mSpacing[2] / mSpacing[0]; }",
     "float PlaneDistanceInPixels() const { return mSpacing[0] / mSpacing[2]; }", ["decon"]),
    ("src/decon/cWienerKEstimate.cpp", "s[i] = (p[i - 1] + p[i] + p[i + 1]) / 3.0f;", "s[i] = (p[i - 1] + p[i] + p[i + 1]) / 2.0f;", ["decon"]),
    ("src/decon/cTheoreticalPsfFirstGuessWithSphericalAberration.cpp", "mLambda = lambda >= kNanometreThreshold ? lambda / 1000.0f : lambda;",
     "mLambda = lambda > kNanometreThreshold ? lambda / 100.0f : lambda;", ["decon"]),
    ("src/decon/cSubvolumeInterpolationConstraint.cpp", "const float weight = rising ? ramp[k] : ramp[w - 1 - k];",
     "const float weight = rising ? ramp[w - 1 - k] : ramp[k];", ["decon"]),
    # largevolume
    ("src/largevolume/cSubvolumeCalculator.cpp", "end = index != count - 1 ? interiorStart + padded : stackSize;",
     "end = index != count ? interiorStart + padded : stackSize;", ["largevolume"]),
    ("src/largevolume/cSubvolumeCalculator.cpp", "return (uint64_t{size} + uint64_t{n - 1} * overlap) / n + 2ull * band;",
     "return (uint64_t{size} + uint64_t{n} * overlap) / n + 2ull * band;", ["largevolume"]),
    ("src/largevolume/cBlendingMaskCreator.cpp", "return index + 1 == count ? cTilePlace::Last : cTilePlace::Inner;",
     "return index == count ? cTilePlace::Last : cTilePlace::Inner;", ["largevolume"]),
    ("src/largevolume/cBlending.cpp", "static_cast<uint32_t>(mSize.y * ny - (ny - 1) * mOverlap), 1};",
     "static_cast<uint32_t>(mSize.y * ny - ny * mOverlap), 1};", ["largevolume"]),
    ("src/largevolume/cImageStatistics.cpp", "return value > 1.05 * reference || value < 0.95 * reference;",
     "return value > 1.5 * reference || value < 0.5 * reference;", ["largevolume"]),
    ("src/largevolume/cBinning.cpp", "const uint32_t y1 = mResult->GetSizeY() - 1;", "const uint32_t y1 = mResult->GetSizeY() - 2;", ["largevolume"]),
    ("src/largevolume/cSubvolumeAccessor.cpp", "if (bandsX >= mPadded.x || bandsY >= mPadded.y || bandsZ >= mPadded.z)",
     "if (bandsX > mPadded.x || bandsY >= mPadded.y || bandsZ >= mPadded.z)", ["largevolume"]),
    # interface
    ("src/interface/ovdValidation.cpp", "return ratio >= 0.20000000298023224;", "return ratio > 0.20000000298023224;", ["interface"]),
    ("src/interface/ovdValidation.cpp", "if (a.overlap > 300)", "if (a.overlap > 301)", ["interface"]),
    ("src/interface/ovdValidation.cpp", "if (zSpacing < 0.1f * axial)", "if (zSpacing < 0.1f * axial && false)", ["interface"]),
    ("src/interface/cBrentMinimizer.cpp", "e = x >= xm ? a - x : b - x;", "e = x >= xm ? b - x : a - x;", ["interface"]),
    ("src/interface/ovdRestoreExport.cpp", "if (o.nIterations < 0 || o.nIterations > OVD_MAX_ITERATIONS)",
     "if (o.nIterations < 0 || o.nIterations > 2 * OVD_MAX_ITERATIONS)", ["restore"]),
    ("src/interface/ovdRunSetup.cpp", "return kilobytes >= static_cast<int64_t>(neededKilobytes);",
     "return kilobytes > static_cast<int64_t>(neededKilobytes);", ["interface"]),
    # tools
    ("tools/ovd/ResultText.cpp", "return code >= 15 && code <= 20;", "return code >= 16 && code <= 20;", ["cli"]),
    ("tools/ovd/InputStack.cpp", "shape.width < 1 || shape.height < 1 || shape.depth < 1 || shape.width > 32767 ||",
     "shape.width < 1 || shape.height < 1 || shape.depth < 1 || shape.width > 32768 ||", ["cli"]),
    ("tools/ovd/MethodOptions.cpp", "o.acceleration == \"line\" ? OVD_ACCELERATION_LINE_SEARCH : OVD_ACCELERATION_EXTRAPOLATION;",
     "o.acceleration == \"line\" ? OVD_ACCELERATION_EXTRAPOLATION : OVD_ACCELERATION_LINE_SEARCH;", ["cli"]),
    # python
    ("python/ovidane/_api.py", "if not low <= value <= high:", "if not low <= value <= high + 1:", ["python"]),
    ("python/ovidane/errors.py", "    if code == 1 and cancelled:", "    if code == 2 and cancelled:", ["python"]),
    ("python/ovidane/_api.py", "if max(array.shape) > 32767 or min(array.shape) < 1:",
     "if max(array.shape) > 32768 or min(array.shape) < 1:", ["python"]),
]


def sh(cmd, cwd, log, timeout=None):
    with open(log, "a") as out:
        out.write(f"$ {cmd}\n")
        out.flush()
        try:
            return subprocess.run(cmd, shell=True, cwd=cwd, stdout=out, stderr=subprocess.STDOUT,
                                  timeout=timeout).returncode
        except subprocess.TimeoutExpired:
            out.write("timed out\n")
            return 124


def apply(src, entry):
    path, original, replacement, _ = entry
    full = os.path.join(src, path)
    with open(full) as f:
        text = f.read()
    count = text.count(original)
    if count != 1:
        sys.exit(f"mutation in {path}: expected the text once, found it {count} times: {original!r}")
    with open(full, "w") as f:
        f.write(text.replace(original, replacement or ""))
    return text


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--rev", default="HEAD", help="revision to copy (default HEAD)")
    ap.add_argument("--only", help="comma-separated mutation numbers (1-based)")
    ap.add_argument("--keep", action="store_true", help="keep the scratch directory")
    ap.add_argument("--jobs", default="2")
    args = ap.parse_args()

    root = os.path.join(REPO, "build-mutation")
    os.makedirs(root, exist_ok=True)
    scratch = tempfile.mkdtemp(prefix="run-", dir=root)
    src, build = scratch, os.path.join(scratch, "build")
    log = os.path.join(scratch, "mutation-log.txt")
    subprocess.run(f"git -C {REPO} archive {args.rev} | tar -x -C {src}", shell=True, check=True)
    # Every original must be found before anything is built.
    for entry in MUTATIONS:
        with open(os.path.join(src, entry[0])) as f:
            if f.read().count(entry[1]) != 1:
                shutil.rmtree(scratch)
                sys.exit(f"mutation in {entry[0]} does not match exactly once: {entry[1]!r}")
    print(f"scratch {scratch}; log {log}", flush=True)
    if sh(f"cmake -S {src} -B {build} -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "
          f"-DOVD_BUILD_BENCH=OFF -DCMAKE_CXX_COMPILER_LAUNCHER=ccache "
          f"-DCMAKE_C_COMPILER_LAUNCHER=ccache", scratch, log) != 0 or \
       sh(f"ninja -C {build} -j{args.jobs}", scratch, log) != 0:
        sys.exit(f"the unmutated tree does not build; see {log}")

    chosen = range(1, len(MUTATIONS) + 1)
    if args.only:
        chosen = [int(n) for n in args.only.split(",")]
    results = []
    for n in chosen:
        entry = MUTATIONS[n - 1]
        path, original, _, groups = entry
        saved = apply(src, entry)
        start = time.time()
        targets = sorted({t for g in groups for t in GROUPS[g][0]})
        if sh(f"ninja -C {build} -j{args.jobs} {' '.join(targets)}", build, log) != 0:
            verdict, by = "build", ""
        else:
            verdict, by = "survived", ""
            for g in groups:
                for cmd in GROUPS[g][1]:
                    if sh(cmd.format(src=src), build, log, timeout=600) != 0:
                        verdict, by = "killed", g
                        break
                if verdict == "killed":
                    break
        with open(os.path.join(src, path), "w") as f:
            f.write(saved)
        line = original.strip().splitlines()[0][:60]
        results.append((n, path, line, verdict, by))
        print(f"{n:3d} {verdict:8s} {by:11s} {time.time() - start:6.0f}s  {path}: {line}", flush=True)
    # Leave the build matching the unmutated tree.
    sh(f"ninja -C {build} -j{args.jobs}", build, log)

    killed = sum(r[3] == "killed" for r in results)
    built = sum(r[3] == "build" for r in results)
    print(f"\nkilled {killed} of {len(results)}; survived {len(results) - killed - built}; "
          f"did not build {built}")
    for r in results:
        if r[3] != "killed":
            print(f"  {r[3]}: #{r[0]} {r[1]}: {r[2]}")
    if not args.keep:
        shutil.rmtree(scratch)


if __name__ == "__main__":
    main()
