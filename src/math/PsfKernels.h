#pragma once
// Line kernels of the theoretical PSF's planes: the Hankel sums over the pupil, and the
// oversampled plane summed into image pixels block by block, a strided walk that the
// compiler leaves scalar. They run on Google Highway, built for every instruction set it
// targets and chosen at the first call, and each lane computes in the scalar loop's order:
// every target gives the scalar bits.
#include <cstddef>
#include <cstdint>

namespace Ovidane::PsfKernels {

// real[i] += c · row[i] and imaginary[i] += s · row[i], i < n: one pupil sample's term.
void AddPupilTerm(const float* row, float c, float s, float* real, float* imaginary,
                  std::size_t n);

// blocks[x] += row[x * s + b] for b = 0 … s-1 in that order, x < n: one oversampled row's
// sub-pixels added into a line of block sums.
void AddRowBlocks(const float* row, float* blocks, std::size_t n, uint32_t s);

// A plane's sum in double, formed in sixteen parts: part k takes the pixels x ≡ k (mod 16)
// of each line, in order, and the plane's sum is the parts' total in index order. Sixteen
// independent additions keep a core busy where a single running sum waits on each one.
inline constexpr std::size_t kPlaneSumParts = 16;

// parts[x % 16] += line[x], x < n.
void AddToPlaneSum(const float* line, std::size_t n, double* parts);

// line[x] *= factor, then parts[x % 16] += line[x], x < n.
void ScaleAndAddToPlaneSum(float* line, std::size_t n, float factor, double* parts);

inline double PlaneSumTotal(const double* parts) {
    double total = 0.0;
    for (std::size_t k = 0; k < kPlaneSumParts; ++k)
        total += parts[k];
    return total;
}

} // namespace Ovidane::PsfKernels
