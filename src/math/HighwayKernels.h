#pragma once
// The vector kernels of cImageMathHighway: each works on one run of pixels (a line, a slice or
// a whole stack) and knows nothing of images. They are built once per instruction set and the
// best one that the processor offers is chosen at the first call.
//
// Every kernel may take an output that is one of its inputs: a vector of pixels is read
// before the same pixels are written. Runs need no particular length or alignment.
#include <cstddef>
#include <cstdint>

namespace Ovidane::HighwayKernels {

// The system's one small number, and the value that a divisor below it is replaced by.
inline constexpr float kGuard = 1e-20f;
inline constexpr float kGuardReciprocal = 1e20f;

enum class eBinary : uint8_t {
    Add,
    Subtract,
    Multiply,
    Minimum,
    Maximum,
    // a / b with every b below the guard value replaced by 1e20 first, so that such pixels
    // come out near 0 with a's sign.
    GuardedDivide,
};

enum class eUnary : uint8_t {
    AddConstant,      // p + c
    SubtractConstant, // p - c
    MultiplyConstant, // p · c
    Absolute,
    Square,
    // √p after p is raised to at least the guard value: such pixels give 1e-10.
    GuardedSquareRoot,
    // ln p after p is raised to at least the guard value.
    GuardedLog,
    // v = p - c, then v replaced by `value` where v < threshold (Below) or v > threshold
    // (Above).
    ThresholdBelow,
    ThresholdAbove,
    // ThresholdBelow, then the result · scale.
    ThresholdBelowScaled,
    // A copy that stores pixels below the guard value as 0.
    CopyZeroBelowGuard,
    Exp,
    // 0 where p > threshold, else 1.
    ZeroAboveElseOne,
};

struct cUnaryArguments {
    float c = 0.0f;
    float threshold = 0.0f;
    float value = 0.0f;
    float scale = 1.0f;
};

void Binary(eBinary op, float* out, const float* a, const float* b, std::size_t n);
void Unary(eUnary op, float* out, const float* a, std::size_t n, const cUnaryArguments& arguments);

// out = exp(exponent · ln(min(a / b, 10))) with b first raised in place to at least the guard
// value; a quotient that isn't positive gives 0.
void PowerOfQuotient(float* out, const float* a, float* b, std::size_t n, float exponent);

// Interleaved complex product of `pairs` (re, im) pairs: out = a · b · scale.
void ComplexProduct(float* out, const float* a, const float* b, std::size_t pairs, float scale);
// Multiplies the imaginary parts of `pairs` interleaved pairs by -1, in place.
void NegateImaginary(float* pairs, std::size_t count);
// Interleaving and splitting of complex lines; a null real or imaginary source gives 0, a
// null target is skipped.
void Interleave(float* out, const float* re, const float* im, std::size_t pairs);
void Deinterleave(const float* in, float* re, float* im, std::size_t pairs, float scale);

// Sums of one line in float. The line is summed in sixteen interleaved float accumulators
// (pixel i into accumulator i mod 16) that are added in ascending order at the end, so the
// result is the same whatever vector width the processor has.
enum class eLineSum : uint8_t { Sum, Squares, Absolute, Product };
float LineSum(eLineSum kind, const float* a, const float* b, std::size_t n);

// Σ (p - low) / range in double, each quotient a float; the same sum on every vector width.
double NormalizedLineSum(const float* p, std::size_t n, float low, float range);

// Σ data·ln(max(d / blurred + 1, 1e-20)) - d with d = direction · step, summed as LineSum.
float LogLikelihoodGain(const float* data, const float* blurred, const float* direction, float step,
                        std::size_t n);

// Smallest and largest value of a run, merged into `low` and `high`; NaN pixels are passed
// over.
void MinMax(const float* p, std::size_t n, float& low, float& high);
// Index of the first pixel equal to v, or n.
std::size_t FindFirst(const float* p, std::size_t n, float v);
// Number of pixels with low ≤ p ≤ high.
uint64_t CountClosedRange(const float* p, std::size_t n, float low, float high);
// Copies the pixels of a run that lie below `limit`, in order, to `below` and answers how
// many; NaN is not below. `below` needs room for n + kSplitSlack floats: up to a vector
// past the last pixel copied may be written.
constexpr std::size_t kSplitSlack = 64;
std::size_t SplitBelow(const float* p, std::size_t n, float limit, float* below);

// One line of Good's roughness update: for the pixels 1 … n-2, with S the sum of the
// reference's neighbours (left, right, above, below and, when given, next and previous
// slice), e = (beta · r · S + e) · factor; then every pixel of e, the two ends included, is
// raised to at least the guard value.
void RoughnessLine(float* estimate, const float* reference, const float* above, const float* below,
                   const float* next, const float* previous, std::size_t n, float beta,
                   float factor);
// Sets out[x] to value where squares[x] + offset lies below `limit` (below true) or above it
// (below false), and leaves the other pixels: the pixels of one line of a shape inside or
// outside a radius, squares holding the squared x distances and offset the squared y distance.
void SetWhere(float* out, const float* squares, float offset, std::size_t n, float limit,
              bool below, float value);

// Raises every pixel to at least the guard value.
void FloorAtGuard(float* p, std::size_t n);

// Conversions. Float to 16 bits halves the value, rounds to nearest (ties to even) and
// saturates to -32768 … 32767, stored as the two's complement word; float to 8 bits rounds
// to nearest and saturates to 0 … 255. NaN gives 0.
void FloatToHalvedShort(uint16_t* out, const float* in, std::size_t n);
void FloatToSaturatedByte(uint8_t* out, const float* in, std::size_t n);
void ByteToFloat(float* out, const uint8_t* in, std::size_t n);
void ShortToFloat(float* out, const uint16_t* in, std::size_t n);

// The instruction set that the kernels run on, for reports and benchmarks.
const char* TargetName();

} // namespace Ovidane::HighwayKernels
