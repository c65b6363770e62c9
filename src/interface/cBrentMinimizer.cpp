#include "interface/cBrentMinimizer.h"

#include <cmath>

namespace Ovidane {
namespace {

// |magnitude| with the sign of `sign`; a sign of exactly 0 counts as negative.
double WithSign(double magnitude, double sign) {
    return sign > 0.0 ? std::fabs(magnitude) : -std::fabs(magnitude);
}

} // namespace

int32_t cBrentMinimizer::Minimize(double ax, double bx, double cx, double fbx) {
    double a = ax < cx ? ax : cx;
    double b = ax < cx ? cx : ax;
    double x = bx, w = bx, v = bx;
    double fx = fbx, fw = fbx, fv = fbx;
    double d = 0.0;
    // The step before last; a parabolic step must be smaller than half of it.
    double e = 0.0;

    if (iterationLimit < 1) {
        minimumPosition = bx;
        minimumValue = fbx;
        return 1;
    }
    for (int32_t iteration = 0; iteration < iterationLimit; ++iteration) {
        const double xm = 0.5 * (a + b);
        const double tol1 = tolerance * std::fabs(x) + absoluteTerm;
        const double tol2 = 2.0 * tol1;
        if (std::fabs(x - xm) <= tol2 - 0.5 * (b - a)) {
            minimumPosition = x;
            minimumValue = fx;
            return 0;
        }

        bool golden = true;
        if (std::fabs(e) > tol1) {
            const double r = (x - w) * (fx - fv);
            double q = (x - v) * (fx - fw);
            double p = (x - v) * q - (x - w) * r;
            q = 2.0 * (q - r);
            if (q > 0.0)
                p = -p;
            q = std::fabs(q);
            const double t = e;
            e = d;
            // The parabola is accepted only when its step shrinks fast enough and lands
            // inside the bracket.
            if (!(std::fabs(p) >= std::fabs(0.5 * q * t) || p <= q * (a - x) || p >= q * (b - x))) {
                golden = false;
                d = p / q;
                const double u = x + d;
                if (u - a < tol2 || b - u < tol2)
                    d = WithSign(tol1, xm - x);
            }
        }
        if (golden) {
            e = x >= xm ? a - x : b - x;
            d = goldenFraction * e;
        }

        // Never evaluate closer to x than the tolerance: that would tell nothing new.
        const double u = std::fabs(d) >= tol1 ? x + d : x + WithSign(tol1, d);
        int32_t error = 0;
        const double fu = objective->EvaluateFigureOfMerit(u, error);
        if (error != 0)
            return error;

        if (fu <= fx) {
            if (u < x)
                b = x;
            else
                a = x;
            v = w;
            fv = fw;
            w = x;
            fw = fx;
            x = u;
            fx = fu;
        } else {
            if (u < x)
                a = u;
            else
                b = u;
            if (fu <= fw || w == x) {
                v = w;
                fv = fw;
                w = u;
                fw = fu;
            } else if (fu <= fv || v == x || v == w) {
                v = u;
                fv = fu;
            }
        }
    }
    minimumPosition = x;
    minimumValue = fx;
    return 1;
}

} // namespace Ovidane
