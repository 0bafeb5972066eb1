// kr_image_colour.cpp — the colour records and the conversions between the five models.
#include <math.h>

#include "kr_image.h"

namespace {

// Python's x % 1.0: in [0, 1] (1 only for a tiny negative x, which every caller treats as 0).
inline double frac(double x) {
    return x - floor(x);
}

inline bool finite3(double x, double y, double z) {
    return isfinite(x) && isfinite(y) && isfinite(z);
}

inline double clamp01(double x) {
    if (x < 0.0) return 0.0;
    if (x > 1.0) return 1.0;
    return x;  // NaN passes
}

inline bool near(double x, double y, double tol) {
    return fabs(x - y) <= tol;
}

// The hue of r, g, b from their max and min (max > min), as a fraction of a turn.
inline double hueOf(double r, double g, double b, double maxc, double minc) {
    double span = maxc - minc;
    double rc = (maxc - r) / span;
    double gc = (maxc - g) / span;
    double bc = (maxc - b) / span;
    double h;
    if (r == maxc) {
        h = bc - gc;
    } else if (g == maxc) {
        h = 2.0 + rc - bc;
    } else {
        h = 4.0 + gc - rc;
    }
    return frac(h / 6.0);
}

inline double hlsChannel(double m1, double m2, double x) {
    x = frac(x);
    if (x < 1.0 / 6.0) return m1 + (m2 - m1) * x * 6.0;
    if (x < 0.5) return m2;
    if (x < 2.0 / 3.0) return m1 + (m2 - m1) * (2.0 / 3.0 - x) * 6.0;
    return m1;
}

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
    double maxc = fmax(in.r, fmax(in.g, in.b));
    double minc = fmin(in.r, fmin(in.g, in.b));
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
    double maxc = fmax(in.r, fmax(in.g, in.b));
    double minc = fmin(in.r, fmin(in.g, in.b));
    double sum = maxc + minc;
    double span = maxc - minc;
    double l = sum / 2.0;
    if (minc == maxc) {
        out = KR_HLSA(0.0, l, 0.0, in.a);
        return;
    }
    double s = l <= 0.5 ? span / sum : span / (2.0 - maxc - minc);
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
    double fi = floor(h6);
    double f = h6 - fi;
    double p = v * (1.0 - s);
    double q = v * (1.0 - s * f);
    double t = v * (1.0 - s * (1.0 - f));
    switch (static_cast<int>(fi) % 6) {
        case 0:
            out = KR_RGBA(v, t, p, in.a);
            break;
        case 1:
            out = KR_RGBA(q, v, p, in.a);
            break;
        case 2:
            out = KR_RGBA(p, v, t, in.a);
            break;
        case 3:
            out = KR_RGBA(p, q, v, in.a);
            break;
        case 4:
            out = KR_RGBA(t, p, v, in.a);
            break;
        default:
            out = KR_RGBA(v, p, q, in.a);
            break;
    }
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
    double m2 = l <= 0.5 ? l * (1.0 + s) : l + s - l * s;
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
