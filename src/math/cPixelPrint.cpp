#include "math/cPixelPrint.h"

#include <bit>
#include <cstring>

#include "math/ImageWalk.h"

namespace Ovidane {

namespace {

constexpr uint64_t kPrime1 = 0x9E3779B185EBCA87ull;
constexpr uint64_t kPrime2 = 0xC2B2AE3D27D4EB4Full;

// lane' = rotl(lane + word * kPrime2, 31) * kPrime1: for a fixed lane, a bijection of the word
// (both primes are odd).
inline uint64_t Round(uint64_t lane, uint64_t word) {
    return std::rotl(lane + word * kPrime2, 31) * kPrime1;
}

constexpr int kLanes = cPixelPrint::kLanes;

// Folds `count` floats into the lanes, two floats to a word, words dealt to the lanes in
// turn; a last lone float is a word of its own.
void PrintLine(const float* pixels, uint64_t count, uint64_t line, uint64_t* lanes) {
    static_assert(kLanes == 4);
    uint64_t acc[kLanes] = {line + 1, ~line, line * kPrime1, line ^ kPrime2};
    const uint64_t words = count / 2;
    uint64_t w = 0;
    for (; w + kLanes <= words; w += kLanes)
        for (int l = 0; l < kLanes; ++l) {
            uint64_t word;
            std::memcpy(&word, pixels + 2 * (w + l), sizeof word);
            acc[l] = Round(acc[l], word);
        }
    for (; w < words; ++w) {
        uint64_t word;
        std::memcpy(&word, pixels + 2 * w, sizeof word);
        acc[w % kLanes] = Round(acc[w % kLanes], word);
    }
    if (count % 2) {
        uint32_t last;
        std::memcpy(&last, pixels + count - 1, sizeof last);
        acc[kLanes - 1] = Round(acc[kLanes - 1], uint64_t{last} | (uint64_t{1} << 32));
    }
    std::memcpy(lanes, acc, sizeof acc);
}

} // namespace

bool cPixelPrint::Retake(const cFloatImage& image) {
    const cImageDimensions size = image.GetDimensions();
    const uint64_t frozen = image.GetFrozenNumber();
    if (mValid && frozen != 0 && frozen == mFrozenNumber)
        return true;
    const uint64_t lines = uint64_t{size.y} * size.z;
    mTaken.resize(lines * kLanes);
    uint64_t* taken = mTaken.data();
    ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
        const uint64_t line = uint64_t{z} * size.y + y;
        PrintLine(image.GetLinePointer(y, z), size.x, line, taken + line * kLanes);
    });
    const bool same = mValid && mSize == size && mTaken == mLanes;
    mTaken.swap(mLanes);
    mSize = size;
    mFrozenNumber = frozen;
    mValid = true;
    return same;
}

} // namespace Ovidane
