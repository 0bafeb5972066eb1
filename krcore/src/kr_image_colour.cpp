// kr_image_colour.cpp — the colour records and the conversions between the five models.
#include <math.h>

#include "kr_image.h"

namespace {

// floor() without the library call it costs on x86-64 before SSE4.1; the same value for every
// double. From 2^52 on every double is an integer, and NaN and the infinities come back as they
// are.
inline double floorOf(double x) {
    if (!(fabs(x) < 4503599627370496.0)) return x;
    // The sign of x is a coin toss for the branch predictor: an indexed load instead of a
    // branch (compilers turn a conditional subtraction back into one).
    static const double kStep[2] = {0.0, 1.0};
    double t = static_cast<double>(static_cast<long long>(x));
    return t - kStep[t > x];
}

// Python's x % 1.0: in [0, 1] (1 only for a tiny negative x, which every caller treats as 0),
// and +0 for -0.
inline double frac(double x) {
    return (x - floorOf(x)) + 0.0;
}

inline bool finite3(double x, double y, double z) {
    return isfinite(x) && isfinite(y) && isfinite(z);
}

inline double clamp01(double x) {
    if (x < 0.0) return 0.0;
    if (x > 1.0) return 1.0;
    return x;  // NaN passes
}

// std::fmin and fmax handle NaN, which costs a library call; the operands here are finite, and
// these compile to the minsd and maxsd instructions.
inline double lesser(double x, double y) {
    return y < x ? y : x;
}

inline double greater(double x, double y) {
    return y > x ? y : x;
}

inline bool near(double x, double y, double tol) {
    return fabs(x - y) <= tol;
}

// The hue of r, g, b from their max and min (max > min), as a fraction of a turn. One division
// of the selected difference: the same value as colorsys's three within a rounding. Which
// channel is the largest is a coin toss for the branch predictor, so the choices here (and
// below) index small arrays instead of branching.
inline double hueOf(double r, double g, double b, double maxc, double minc) {
    const int k = (r != maxc) + (r != maxc && g != maxc);
    const double diff[3] = {g - b, b - r, r - g};
    return frac((2.0 * k + diff[k] / (maxc - minc)) / 6.0);
}

// The piecewise-linear hue curve of HLS: m1 up to m2 over the first sixth, m2 up to a half,
// back down to m1 at two thirds, by clamping instead of branches on x.
inline double hlsChannel(double m1, double m2, double x) {
    x = frac(x);
    double t = lesser(x * 6.0, (2.0 / 3.0 - x) * 6.0);
    const double top[2] = {t, 1.0};
    t = top[t > 1.0];
    const double bottom[2] = {t, 0.0};
    return m1 + (m2 - m1) * bottom[t < 0.0];
}

// The HSV sectors: which of v, t, p, q (in that order) makes r, g and b.
const unsigned char kSector[6][3] = {{0, 1, 2}, {3, 0, 2}, {2, 0, 1},
                                     {2, 3, 0}, {1, 2, 0}, {0, 2, 3}};

const double kNaN = NAN;

}  // namespace

// --- KR_RGBA ---

KR_RGBA KR_RGBA::fromBytes(unsigned char rb, unsigned char gb, unsigned char bb, unsigned char ab) {
    return KR_RGBA(rb / 255.0, gb / 255.0, bb / 255.0, ab / 255.0);
}

void KR_RGBA::toBytes(unsigned char out[4]) const {
    const double v[4] = {r, g, b, a};
    for (int k = 0; k < 4; ++k) {
        double x = v[k];
        if (!(x > 0.0)) {
            out[k] = 0;  // NaN too
        } else if (x >= 1.0) {
            out[k] = 255;
        } else {
            out[k] = static_cast<unsigned char>(floor(x * 255.0 + 0.5));
        }
    }
}

bool KR_RGBA::isNear(const KR_RGBA& o, double tol) const {
    return near(r, o.r, tol) && near(g, o.g, tol) && near(b, o.b, tol) && near(a, o.a, tol);
}

// --- KR_CMYA, KR_YIQA, KR_HSVA, KR_HLSA ---

bool KR_CMYA::isNear(const KR_CMYA& o, double tol) const {
    return near(c, o.c, tol) && near(m, o.m, tol) && near(y, o.y, tol) && near(a, o.a, tol);
}

bool KR_YIQA::isNear(const KR_YIQA& o, double tol) const {
    return near(y, o.y, tol) && near(i, o.i, tol) && near(q, o.q, tol) && near(a, o.a, tol);
}

bool KR_HSVA::isNear(const KR_HSVA& o, double tol) const {
    return near(h, o.h, tol) && near(s, o.s, tol) && near(v, o.v, tol) && near(a, o.a, tol);
}

bool KR_HLSA::isNear(const KR_HLSA& o, double tol) const {
    return near(h, o.h, tol) && near(l, o.l, tol) && near(s, o.s, tol) && near(a, o.a, tol);
}

// --- conversions from RGBA ---

void KR_colorConvert(const KR_RGBA& in, KR_RGBA& out) {
    out = in;
}

void KR_colorConvert(const KR_RGBA& in, KR_CMYA& out) {
    out = KR_CMYA(1.0 - in.r, 1.0 - in.g, 1.0 - in.b, in.a);
}

void KR_colorConvert(const KR_RGBA& in, KR_YIQA& out) {
    double y = 0.30 * in.r + 0.59 * in.g + 0.11 * in.b;
    double i = 0.74 * (in.r - y) - 0.27 * (in.b - y);
    double q = 0.48 * (in.r - y) + 0.41 * (in.b - y);
    out = KR_YIQA(y, i, q, in.a);
}

void KR_colorConvert(const KR_RGBA& in, KR_HSVA& out) {
    if (!finite3(in.r, in.g, in.b)) {
        out = KR_HSVA(kNaN, kNaN, kNaN, in.a);
        return;
    }
    double maxc = greater(in.r, greater(in.g, in.b));
    double minc = lesser(in.r, lesser(in.g, in.b));
    if (minc == maxc) {
        out = KR_HSVA(0.0, 0.0, maxc, in.a);
        return;
    }
    out = KR_HSVA(hueOf(in.r, in.g, in.b, maxc, minc), (maxc - minc) / maxc, maxc, in.a);
}

void KR_colorConvert(const KR_RGBA& in, KR_HLSA& out) {
    if (!finite3(in.r, in.g, in.b)) {
        out = KR_HLSA(kNaN, kNaN, kNaN, in.a);
        return;
    }
    double maxc = greater(in.r, greater(in.g, in.b));
    double minc = lesser(in.r, lesser(in.g, in.b));
    double sum = maxc + minc;
    double span = maxc - minc;
    double l = sum / 2.0;
    if (minc == maxc) {
        out = KR_HLSA(0.0, l, 0.0, in.a);
        return;
    }
    const double divisor[2] = {sum, 2.0 - maxc - minc};
    double s = span / divisor[l > 0.5];
    out = KR_HLSA(hueOf(in.r, in.g, in.b, maxc, minc), l, s, in.a);
}

// --- conversions to RGBA ---

void KR_colorConvert(const KR_CMYA& in, KR_RGBA& out) {
    out = KR_RGBA(1.0 - in.c, 1.0 - in.m, 1.0 - in.y, in.a);
}

void KR_colorConvert(const KR_YIQA& in, KR_RGBA& out) {
    double r = in.y + 0.9468822170900693 * in.i + 0.6235565819861433 * in.q;
    double g = in.y - 0.27478764629897834 * in.i - 0.6356910791873801 * in.q;
    double b = in.y - 1.1085450346420322 * in.i + 1.7090069284064666 * in.q;
    out = KR_RGBA(clamp01(r), clamp01(g), clamp01(b), in.a);
}

void KR_colorConvert(const KR_HSVA& in, KR_RGBA& out) {
    double v = in.v, s = in.s;
    if (!finite3(in.h, s, v)) {
        out = KR_RGBA(kNaN, kNaN, kNaN, in.a);
        return;
    }
    if (s == 0.0) {
        out = KR_RGBA(v, v, v, in.a);
        return;
    }
    double h6 = frac(in.h) * 6.0;  // in [0, 6]: the hue is finite here
    double fi = floorOf(h6);
    double f = h6 - fi;
    const double c[4] = {v, v * (1.0 - s * (1.0 - f)), v * (1.0 - s), v * (1.0 - s * f)};
    const unsigned char* k = kSector[static_cast<int>(fi) % 6];
    out = KR_RGBA(c[k[0]], c[k[1]], c[k[2]], in.a);
}

void KR_colorConvert(const KR_HLSA& in, KR_RGBA& out) {
    double l = in.l, s = in.s;
    if (!finite3(in.h, l, s)) {
        out = KR_RGBA(kNaN, kNaN, kNaN, in.a);
        return;
    }
    if (s == 0.0) {
        out = KR_RGBA(l, l, l, in.a);
        return;
    }
    const double upper[2] = {l * (1.0 + s), l + s - l * s};
    double m2 = upper[l > 0.5];
    double m1 = 2.0 * l - m2;
    out = KR_RGBA(hlsChannel(m1, m2, in.h + 1.0 / 3.0), hlsChannel(m1, m2, in.h),
                  hlsChannel(m1, m2, in.h - 1.0 / 3.0), in.a);
}

// --- the identities and the pairs through RGBA ---

void KR_colorConvert(const KR_CMYA& in, KR_CMYA& out) {
    out = in;
}

void KR_colorConvert(const KR_YIQA& in, KR_YIQA& out) {
    out = in;
}

void KR_colorConvert(const KR_HSVA& in, KR_HSVA& out) {
    out = in;
}

void KR_colorConvert(const KR_HLSA& in, KR_HLSA& out) {
    out = in;
}

namespace {

template <class From, class To>
inline void viaRgba(const From& in, To& out) {
    KR_RGBA rgba;
    KR_colorConvert(in, rgba);
    KR_colorConvert(rgba, out);
}

}  // namespace

void KR_colorConvert(const KR_CMYA& in, KR_YIQA& out) {
    viaRgba(in, out);
}

void KR_colorConvert(const KR_CMYA& in, KR_HSVA& out) {
    viaRgba(in, out);
}

void KR_colorConvert(const KR_CMYA& in, KR_HLSA& out) {
    viaRgba(in, out);
}

void KR_colorConvert(const KR_YIQA& in, KR_CMYA& out) {
    viaRgba(in, out);
}

void KR_colorConvert(const KR_YIQA& in, KR_HSVA& out) {
    viaRgba(in, out);
}

void KR_colorConvert(const KR_YIQA& in, KR_HLSA& out) {
    viaRgba(in, out);
}

void KR_colorConvert(const KR_HSVA& in, KR_CMYA& out) {
    viaRgba(in, out);
}

void KR_colorConvert(const KR_HSVA& in, KR_YIQA& out) {
    viaRgba(in, out);
}

void KR_colorConvert(const KR_HSVA& in, KR_HLSA& out) {
    viaRgba(in, out);
}

void KR_colorConvert(const KR_HLSA& in, KR_CMYA& out) {
    viaRgba(in, out);
}

void KR_colorConvert(const KR_HLSA& in, KR_YIQA& out) {
    viaRgba(in, out);
}

void KR_colorConvert(const KR_HLSA& in, KR_HSVA& out) {
    viaRgba(in, out);
}
