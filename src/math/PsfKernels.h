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

} // namespace Ovidane::PsfKernels
