// kr_mth.cpp — the geometry records, the vertex array and the printers of the math types.
#include "kr_mth.h"

#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

#include "kr_alloc.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_mth"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kParallelTolerance = 1e-12;

bool finite3(const KR_Vector& v) {
    return isfinite(v.x) && isfinite(v.y) && isfinite(v.z);
}

// An int from a 64-bit value, saturating at the ends of the int range.
int clampToInt(long long value) {
    if (value > INT_MAX) return INT_MAX;
    if (value < INT_MIN) return INT_MIN;
    return static_cast<int>(value);
}

// An int from a double that is already integral (or NaN, or out of range): no undefined
// conversion for any input.
int saturateToInt(double value) {
    if (value != value) return 0;
    if (value >= 2147483647.0) return INT_MAX;
    if (value <= -2147483648.0) return INT_MIN;
    return static_cast<int>(value);
}

// The three lines "Array args have different number of vertices" / "Arg %d has %d vertices"
// joined into one format at the failure site.
KR_RET_STATUS reportCountMismatch(unsigned int line,
                                  unsigned int textId,
                                  unsigned int n1,
                                  unsigned int n2) {
    char format[160];
    snprintf(format, sizeof format, "%s\n%s\n%s", KR_msg(2, 8), KR_msg(2, 9), KR_msg(2, 9));
    KR_reportErrorMsg(KRI_UNIT, line, KR_msg(2, textId), format, 1, static_cast<int>(n1), 2,
                      static_cast<int>(n2));
    return krInternal::failAt(KR_RET_ERR_ARG, KRI_UNIT, line);
}

}  // namespace

// --- KR_Vector ---

double& KR_Vector::badIndex(unsigned int i) {
    KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Vector: element access", KR_msg(0, 3), static_cast<int>(i), 0,
                 2);
    return krInternal::nullRef<double>();
}

// --- KR_Plane ---

KR_RET_STATUS KR_Plane::fromPoints(const KR_Vector& a, const KR_Vector& b, const KR_Vector& c) {
    KR_Vector ab = b - a;
    KR_Vector ac = c - a;
    KR_Vector n = ab.cross(ac);
    double len = n.length();
    if (!finite3(ab) || !finite3(ac) || !(len > kParallelTolerance * ab.length() * ac.length()))
        return KR_RET_FALSE;
    normal = n / len;
    d = -normal.dot(a);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Plane::normalize() {
    double len = normal.length();
    if (!(len > 0.0) || !isfinite(len)) return KR_RET_FALSE;
    normal /= len;
    d /= len;
    return KR_RET_TRUE;
}

// --- KR_ParamLine ---

KR_RET_STATUS KR_ParamLine::closestParam(const KR_Vector& q, double& t) const {
    double dd = dir.lengthSq();
    if (!(dd > 0.0)) {
        t = 0.0;
        return KR_RET_FALSE;
    }
    t = (q - point).dot(dir) / dd;
    return KR_RET_TRUE;
}

double KR_ParamLine::distanceTo(const KR_Vector& q) const {
    double t = 0.0;
    closestParam(q, t);
    return pointAt(t).distance(q);
}

KR_RET_STATUS KR_ParamLine::intersectPlane(const KR_Plane& plane, double& t) const {
    double nd = plane.normal.dot(dir);
    if (!(fabs(nd) > kParallelTolerance * plane.normal.length() * dir.length()))
        return KR_RET_FALSE;
    t = -plane.signedDistance(point) / nd;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_ParamLine::closestApproach(const KR_ParamLine& other,
                                            double& t1,
                                            double& t2) const {
    const KR_Vector& d1 = dir;
    const KR_Vector& d2 = other.dir;
    double a = d1.lengthSq();
    double e = d2.lengthSq();
    double cr = d1.cross(d2).lengthSq();
    // Compared squared: |d1 x d2|^2 <= (1e-12)^2 |d1|^2 |d2|^2.
    if (!(cr > kParallelTolerance * kParallelTolerance * a * e)) return KR_RET_FALSE;
    KR_Vector r = point - other.point;
    double b = d1.dot(d2);
    double c = d1.dot(r);
    double f = d2.dot(r);
    double denom = a * e - b * b;
    t1 = (b * f - c * e) / denom;
    t2 = (a * f - b * c) / denom;
    return KR_RET_TRUE;
}

// --- KR_Quaternion ---

KR_RET_STATUS KR_Quaternion::fromAxisAngle(const KR_Vector& axis, double angle) {
    KR_Vector u = axis;
    if (u.normalize() != KR_RET_TRUE) return KR_RET_FALSE;
    double s = sin(angle * 0.5);
    w = cos(angle * 0.5);
    x = u.x * s;
    y = u.y * s;
    z = u.z * s;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Quaternion::normalize() {
    double n = norm();
    if (!(n > 0.0) || !isfinite(n)) return KR_RET_FALSE;
    double inv = 1.0 / n;
    w *= inv;
    x *= inv;
    y *= inv;
    z *= inv;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Quaternion::inverse(KR_Quaternion& out) const {
    double n2 = w * w + x * x + y * y + z * z;
    if (!(n2 > 0.0) || !isfinite(n2)) return KR_RET_FALSE;
    out = KR_Quaternion(w / n2, -x / n2, -y / n2, -z / n2);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Quaternion::toMatrix(KR_3DMatrix& m) const {
    return m.setRotation(*this);
}

KR_RET_STATUS KR_Quaternion::fromMatrix(const KR_3DMatrix& m) {
    KR_setUserError(0);
    KR_RET_STATUS status = KR_RET_TRUE;
    const double* e = m.block(status);
    if (e == nullptr) return status;
    double a[3][3];
    for (unsigned int r = 0; r < 3; ++r)
        for (unsigned int c = 0; c < 3; ++c)
            a[r][c] = e[r * 4 + c];
    double trace = a[0][0] + a[1][1] + a[2][2];
    KR_Quaternion q;
    if (trace >= a[0][0] && trace >= a[1][1] && trace >= a[2][2]) {
        double s = sqrt(1.0 + trace) * 2.0;  // 4w
        q = KR_Quaternion(0.25 * s, (a[2][1] - a[1][2]) / s, (a[0][2] - a[2][0]) / s,
                          (a[1][0] - a[0][1]) / s);
    } else if (a[0][0] >= a[1][1] && a[0][0] >= a[2][2]) {
        double s = sqrt(1.0 + a[0][0] - a[1][1] - a[2][2]) * 2.0;  // 4x
        q = KR_Quaternion((a[2][1] - a[1][2]) / s, 0.25 * s, (a[0][1] + a[1][0]) / s,
                          (a[0][2] + a[2][0]) / s);
    } else if (a[1][1] >= a[2][2]) {
        double s = sqrt(1.0 + a[1][1] - a[0][0] - a[2][2]) * 2.0;  // 4y
        q = KR_Quaternion((a[0][2] - a[2][0]) / s, (a[0][1] + a[1][0]) / s, 0.25 * s,
                          (a[1][2] + a[2][1]) / s);
    } else {
        double s = sqrt(1.0 + a[2][2] - a[0][0] - a[1][1]) * 2.0;  // 4z
        q = KR_Quaternion((a[1][0] - a[0][1]) / s, (a[0][2] + a[2][0]) / s, (a[1][2] + a[2][1]) / s,
                          0.25 * s);
    }
    if (q.w < 0.0) q = KR_Quaternion(-q.w, -q.x, -q.y, -q.z);
    q.normalize();
    *this = q;
    return KR_RET_TRUE;
}

// --- KR_Rect ---

int KR_Rect::width() const {
    return clampToInt(static_cast<long long>(right) - left);
}

int KR_Rect::height() const {
    return clampToInt(static_cast<long long>(bottom) - top);
}

void KR_Rect::normalize() {
    if (right < left) {
        int t = left;
        left = right;
        right = t;
    }
    if (bottom < top) {
        int t = top;
        top = bottom;
        bottom = t;
    }
}

bool KR_Rect::contains(const KR_Rect& r) const {
    return !r.isEmpty() && r.left >= left && r.right <= right && r.top >= top && r.bottom <= bottom;
}

bool KR_Rect::intersects(const KR_Rect& r) const {
    return !isEmpty() && !r.isEmpty() && r.left < right && left < r.right && r.top < bottom &&
           top < r.bottom;
}

KR_RET_STATUS KR_Rect::intersect(const KR_Rect& r, KR_Rect& out) const {
    if (!intersects(r)) {
        out = KR_Rect();
        return KR_RET_FALSE;
    }
    out = KR_Rect(left > r.left ? left : r.left, top > r.top ? top : r.top,
                  right < r.right ? right : r.right, bottom < r.bottom ? bottom : r.bottom);
    return KR_RET_TRUE;
}

void KR_Rect::unite(const KR_Rect& r, KR_Rect& out) const {
    if (r.isEmpty()) {
        out = isEmpty() ? KR_Rect() : *this;
        return;
    }
    if (isEmpty()) {
        out = r;
        return;
    }
    out = KR_Rect(left < r.left ? left : r.left, top < r.top ? top : r.top,
                  right > r.right ? right : r.right, bottom > r.bottom ? bottom : r.bottom);
}

void KR_Rect::offset(int dx, int dy) {
    left = clampToInt(static_cast<long long>(left) + dx);
    right = clampToInt(static_cast<long long>(right) + dx);
    top = clampToInt(static_cast<long long>(top) + dy);
    bottom = clampToInt(static_cast<long long>(bottom) + dy);
}

void KR_Rect::inflate(int dx, int dy) {
    left = clampToInt(static_cast<long long>(left) - dx);
    right = clampToInt(static_cast<long long>(right) + dx);
    top = clampToInt(static_cast<long long>(top) - dy);
    bottom = clampToInt(static_cast<long long>(bottom) + dy);
}

KR_RectF KR_Rect::toRectF() const {
    return KR_RectF(left, top, right, bottom);
}

// --- KR_RectF ---

void KR_RectF::normalize() {
    if (right < left) {
        double t = left;
        left = right;
        right = t;
    }
    if (bottom < top) {
        double t = top;
        top = bottom;
        bottom = t;
    }
}

bool KR_RectF::contains(const KR_RectF& r) const {
    return !r.isEmpty() && r.left >= left && r.right <= right && r.top >= top && r.bottom <= bottom;
}

bool KR_RectF::intersects(const KR_RectF& r) const {
    return !isEmpty() && !r.isEmpty() && r.left < right && left < r.right && r.top < bottom &&
           top < r.bottom;
}

KR_RET_STATUS KR_RectF::intersect(const KR_RectF& r, KR_RectF& out) const {
    if (!intersects(r)) {
        out = KR_RectF();
        return KR_RET_FALSE;
    }
    out = KR_RectF(fmax(left, r.left), fmax(top, r.top), fmin(right, r.right),
                   fmin(bottom, r.bottom));
    return KR_RET_TRUE;
}

void KR_RectF::unite(const KR_RectF& r, KR_RectF& out) const {
    if (r.isEmpty()) {
        out = isEmpty() ? KR_RectF() : *this;
        return;
    }
    if (isEmpty()) {
        out = r;
        return;
    }
    out = KR_RectF(fmin(left, r.left), fmin(top, r.top), fmax(right, r.right),
                   fmax(bottom, r.bottom));
}

KR_Rect KR_RectF::toRect() const {
    return KR_Rect(saturateToInt(floor(left)), saturateToInt(floor(top)),
                   saturateToInt(ceil(right)), saturateToInt(ceil(bottom)));
}

// --- free functions ---

double KR_mthDegToRad(double degrees) {
    return degrees * (kPi / 180.0);
}

double KR_mthRadToDeg(double radians) {
    return radians * (180.0 / kPi);
}

void KR_mthSphereToVector(const KR_SphereCoord& s, KR_Vector& v) {
    double st = sin(s.theta);
    v = KR_Vector(s.r * st * cos(s.phi), s.r * st * sin(s.phi), s.r * cos(s.theta));
}

void KR_mthVectorToSphere(const KR_Vector& v, KR_SphereCoord& s) {
    double r = v.length();
    if (r == 0.0) {
        s = KR_SphereCoord(0.0, 0.0, 0.0);
        return;
    }
    double phi = atan2(v.y, v.x);
    if (phi <= -kPi) phi = kPi;  // y = -0 with x < 0: the closed end of (-pi, pi]
    s = KR_SphereCoord(r, atan2(sqrt(v.x * v.x + v.y * v.y), v.z) + 0.0, phi + 0.0);
}

void KR_mthSlerp(const KR_Quaternion& a, const KR_Quaternion& b, double t, KR_Quaternion& out) {
    double d = a.dot(b);
    KR_Quaternion e = b;
    if (d < 0.0) {
        d = -d;
        e = KR_Quaternion(-b.w, -b.x, -b.y, -b.z);
    }
    double s0;
    double s1;
    if (d > 0.9995) {
        s0 = 1.0 - t;
        s1 = t;
    } else {
        // sin(acos(d)) without a third sine; (1 - d)(1 + d) keeps its precision near d = 1.
        double theta = acos(d);
        double inv = 1.0 / sqrt((1.0 - d) * (1.0 + d));
        s0 = sin((1.0 - t) * theta) * inv;
        s1 = sin(t * theta) * inv;
    }
    KR_Quaternion q(s0 * a.w + s1 * e.w, s0 * a.x + s1 * e.x, s0 * a.y + s1 * e.y,
                    s0 * a.z + s1 * e.z);
    if (d > 0.9995) q.normalize();
    out = q;
}

KR_OStream& operator<<(KR_OStream& stream, const KR_Vector& v) {
    return stream << "(" << v.x << ", " << v.y << ", " << v.z << ")";
}

KR_OStream& operator<<(KR_OStream& stream, const KR_ParamLine& line) {
    return stream << line.point << " + t " << line.dir;
}

// --- KR_VectorArr ---

KR_VectorArr::KR_VectorArr(unsigned int n) {
    KR_setUserError(0);
    initDataMembers(n);
    if (!initialised_) KRI_FAIL_MSG(KR_RET_ERR_MEM, KR_msg(2, 1), KR_msg(0, 1));
}

KR_VectorArr::KR_VectorArr(const KR_VectorArr& other) : KR_KorvaneClass(other) {
    KR_setUserError(0);
    initialised_ = 0;
    numVecs_ = 0;
    vecs_ = nullptr;
    if (!other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return;
    }
    if (KRI_FAILED(initDataMembers(other.numVecs_))) {
        KRI_FAIL_MSG(KR_RET_ERR_MEM, KR_msg(2, 2), KR_msg(0, 1));
        return;
    }
    if (numVecs_ > 0) memcpy(vecs_, other.vecs_, numVecs_ * sizeof(KR_Vector));
}

KR_VectorArr::~KR_VectorArr() {
    KR_setUserError(0);
    cleanupDataMembers();
}

KR_VectorArr& KR_VectorArr::operator=(const KR_VectorArr& other) {
    KR_setUserError(0);
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    if (&other == this) return *this;
    if (other.numVecs_ == numVecs_) {
        if (numVecs_ > 0) memcpy(vecs_, other.vecs_, numVecs_ * sizeof(KR_Vector));
        return *this;
    }
    KR_Vector* block = nullptr;
    if (other.numVecs_ > 0) {
        block = static_cast<KR_Vector*>(krInternal::allocBlock(other.numVecs_ * sizeof(KR_Vector)));
        if (block == nullptr) {
            KRI_FAIL_MSG(KR_RET_ERR_MEM, KR_msg(2, 3), KR_msg(0, 1));
            return *this;
        }
        memcpy(block, other.vecs_, other.numVecs_ * sizeof(KR_Vector));
    }
    krInternal::freeBlock(vecs_);
    vecs_ = block;
    numVecs_ = other.numVecs_;
    return *this;
}

KR_RET_STATUS KR_VectorArr::resize(unsigned int n) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (n == numVecs_) return KR_RET_TRUE;
    if (n == 0) {
        krInternal::freeBlock(vecs_);
        vecs_ = nullptr;
        numVecs_ = 0;
        return KR_RET_TRUE;
    }
    if (n > UINT_MAX / sizeof(KR_Vector))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, KR_msg(2, 1), KR_msg(0, 1));
    void* block = krInternal::reallocBlock(vecs_, static_cast<size_t>(n) * sizeof(KR_Vector));
    if (block == nullptr) return KRI_FAIL_MSG(KR_RET_ERR_MEM, KR_msg(2, 1), KR_msg(0, 1));
    vecs_ = static_cast<KR_Vector*>(block);
    for (unsigned int i = numVecs_; i < n; ++i)
        vecs_[i] = KR_Vector();
    numVecs_ = n;
    return KR_RET_TRUE;
}

KR_Vector& KR_VectorArr::operator[](unsigned int i) {
    KR_setUserError(0);
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return krInternal::nullRef<KR_Vector>();
    }
    if (i >= numVecs_) {
        KRI_FAIL_MSG(KR_RET_ERR_ARG, KR_msg(2, 10), KR_msg(0, 3), static_cast<int>(i), 0,
                     static_cast<int>(numVecs_) - 1);
        return krInternal::nullRef<KR_Vector>();
    }
    return vecs_[i];
}

KR_RET_STATUS KR_VectorArr::combine(const KR_VectorArr& other, int sign, unsigned int textId) {
    if (!initialised_ || !other.initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (other.numVecs_ != numVecs_)
        return reportCountMismatch(__LINE__, textId, numVecs_, other.numVecs_);
    const KR_Vector* src = other.vecs_;
    if (sign > 0) {
        for (unsigned int i = 0; i < numVecs_; ++i)
            vecs_[i] += src[i];
    } else {
        for (unsigned int i = 0; i < numVecs_; ++i)
            vecs_[i] -= src[i];
    }
    return KR_RET_TRUE;
}

KR_VectorArr& KR_VectorArr::operator+=(const KR_VectorArr& other) {
    KR_setUserError(0);
    combine(other, 1, 4);
    return *this;
}

KR_VectorArr& KR_VectorArr::operator-=(const KR_VectorArr& other) {
    KR_setUserError(0);
    combine(other, -1, 5);
    return *this;
}

KR_VectorArr KR_VectorArr::operator+(const KR_VectorArr& other) const {
    KR_setUserError(0);
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return KR_VectorArr();
    }
    if (other.numVecs_ != numVecs_) {
        reportCountMismatch(__LINE__, 6, numVecs_, other.numVecs_);
        return KR_VectorArr();
    }
    KR_VectorArr sum(*this);
    if (!sum.initialised_) {
        KRI_FAIL_MSG(KR_RET_ERR_MEM, KR_msg(2, 6), KR_msg(0, 1));
        return KR_VectorArr();
    }
    sum.combine(other, 1, 6);
    return sum;
}

KR_VectorArr KR_VectorArr::operator-(const KR_VectorArr& other) const {
    KR_setUserError(0);
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return KR_VectorArr();
    }
    if (other.numVecs_ != numVecs_) {
        reportCountMismatch(__LINE__, 7, numVecs_, other.numVecs_);
        return KR_VectorArr();
    }
    KR_VectorArr diff(*this);
    if (!diff.initialised_) {
        KRI_FAIL_MSG(KR_RET_ERR_MEM, KR_msg(2, 7), KR_msg(0, 1));
        return KR_VectorArr();
    }
    diff.combine(other, -1, 7);
    return diff;
}

KR_VectorArr& KR_VectorArr::operator/=(double s) {
    KR_setUserError(0);
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    if (s == 0.0) {
        KRI_FAIL_MSG(KR_RET_ERR_ARG, KR_msg(2, 11), KR_msg(0, 4));
        return *this;
    }
    for (unsigned int i = 0; i < numVecs_; ++i)
        vecs_[i] /= s;
    return *this;
}

KR_VectorArr KR_VectorArr::operator/(double s) const {
    KR_setUserError(0);
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return KR_VectorArr();
    }
    if (s == 0.0) {
        KRI_FAIL_MSG(KR_RET_ERR_ARG, KR_msg(2, 11), KR_msg(0, 4));
        return KR_VectorArr();
    }
    KR_VectorArr q(*this);
    if (!q.initialised_) return KR_VectorArr();
    for (unsigned int i = 0; i < q.numVecs_; ++i)
        q.vecs_[i] /= s;
    return q;
}

KR_VectorArr& KR_VectorArr::operator*=(double s) {
    KR_setUserError(0);
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    for (unsigned int i = 0; i < numVecs_; ++i)
        vecs_[i] *= s;
    return *this;
}

KR_RET_STATUS KR_VectorArr::centroid(KR_Vector& c) const {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (numVecs_ == 0) return KR_RET_FALSE;
    KR_Vector sum;
    for (unsigned int i = 0; i < numVecs_; ++i)
        sum += vecs_[i];
    c = sum / static_cast<double>(numVecs_);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_VectorArr::bounds(KR_Vector& min, KR_Vector& max) const {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (numVecs_ == 0) return KR_RET_FALSE;
    KR_Vector lo = vecs_[0];
    KR_Vector hi = vecs_[0];
    for (unsigned int i = 1; i < numVecs_; ++i) {
        const KR_Vector& v = vecs_[i];
        lo = KR_Vector(fmin(lo.x, v.x), fmin(lo.y, v.y), fmin(lo.z, v.z));
        hi = KR_Vector(fmax(hi.x, v.x), fmax(hi.y, v.y), fmax(hi.z, v.z));
    }
    min = lo;
    max = hi;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_VectorArr::initDataMembers(unsigned int n) {
    initialised_ = 0;
    numVecs_ = 0;
    vecs_ = nullptr;
    if (n > 0) {
        vecs_ = static_cast<KR_Vector*>(krInternal::allocZeroed(n, sizeof(KR_Vector)));
        if (vecs_ == nullptr) return KR_RET_ERR_MEM;
    }
    numVecs_ = n;
    initialised_ = 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_VectorArr::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    krInternal::freeBlock(vecs_);
    vecs_ = nullptr;
    numVecs_ = 0;
    initialised_ = 0;
    return KR_RET_TRUE;
}

KR_OStream& operator<<(KR_OStream& stream, const KR_VectorArr& a) {
    const KR_Vector* v = a.data();
    for (unsigned int i = 0; i < a.numVecs(); ++i)
        stream << v[i] << "\n";
    return stream;
}
