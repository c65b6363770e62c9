#include "interface/cMinimumBracketing.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Ovidane {

int32_t cMinimumBracketing::Bracket(double pa, double pb) {
    int32_t error = 0;
    // Every evaluation ends the search at once when it reports a failure.
    auto f = [&](double x, double& value) {
        value = objective->EvaluateFigureOfMerit(x, error);
        return error == 0;
    };
    const double g = growthFactor;

    a = pa;
    b = pb;
    if (!f(a, fa) || !f(b, fb))
        return error;
    // Walk from a towards b downhill.
    if (fa < fb) {
        std::swap(a, b);
        std::swap(fa, fb);
    }
    c = b + g * (b - a);
    if (!f(c, fc))
        return error;

    while (fb > fc) {
        // Vertex of the parabola through a, b, c; the denominator keeps its sign but not
        // below the smallest magnitude.
        const double r = (fb - fc) * (b - a);
        const double q = (fb - fa) * (b - c);
        const double d = q - r;
        const double m = std::max(std::fabs(d), smallestDenominator);
        const double s = d > 0.0 ? 1.0 : -1.0;
        double u = b - ((b - c) * q - (b - a) * r) / (2.0 * s * m);
        const double ulim = b + parabolaLimit * (c - b);
        double fu = 0.0;

        if ((u - c) * (b - u) > 0.0) {
            // The vertex lies between b and c.
            if (!f(u, fu))
                return error;
            if (fu < fc) {
                a = b;
                b = u;
                fa = fb;
                fb = fu;
                return 0;
            }
            if (fu > fb) {
                c = u;
                fc = fu;
                return 0;
            }
            // The parabola did not help: take a default step.
            u = c + g * (c - b);
            if (!f(u, fu))
                return error;
        } else if ((c - u) * (u - ulim) > 0.0) {
            // The vertex lies beyond c but within reach.
            if (!f(u, fu))
                return error;
            if (fu < fc) {
                b = c;
                c = u;
                fb = fc;
                fc = fu;
                u = c + g * (c - b);
                if (!f(u, fu))
                    return error;
            }
        } else if ((ulim - c) * (u - ulim) < 0.0) {
            // The vertex points back uphill: take a default step.
            u = c + g * (c - b);
            if (!f(u, fu))
                return error;
        } else {
            // The vertex lies beyond the reach: stop at the reach.
            u = ulim;
            if (!f(u, fu))
                return error;
        }
        a = b;
        b = c;
        c = u;
        fa = fb;
        fb = fc;
        fc = fu;
    }
    return 0;
}

} // namespace Ovidane
