// kr_mth3d.cpp — the 4 x 4 transform and the vertex-array transform.
#include <math.h>
#include <string.h>

#include <initializer_list>

#include "kr_alloc.h"
#include "kr_mth.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_mth"

namespace {

constexpr double kSingularTolerance = 1e-12;

// The 4 x 4 product r := a b, unrolled; r may not overlap a or b.
void identity4(double* e) {
    static const double kIdentity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    memcpy(e, kIdentity, sizeof kIdentity);
}

bool finiteAll(std::initializer_list<double> values) {
    for (double v : values)
        if (!isfinite(v)) return false;
    return true;
}

// Two doubles in one register.
typedef double Pair __attribute__((vector_size(16)));

inline double larger(double a, double b) {
    return a > b ? a : b;
}

// The inverse of any m by cofactors, in place; false, m untouched, when singular.
bool invertGeneral(double* e) {
    const double* m = e;
    // Two lanes at a time (GCC vector extension: SSE2 registers where there are any, scalar code
    // otherwise). Each lane computes the scalar expression term by term, so the results are
    // bit for bit those of the plain formulas.
    Pair s01 = Pair{m[0], m[0]} * Pair{m[5], m[6]} - Pair{m[4], m[4]} * Pair{m[1], m[2]};
    Pair s23 = Pair{m[0], m[1]} * Pair{m[7], m[6]} - Pair{m[4], m[5]} * Pair{m[3], m[2]};
    Pair s45 = Pair{m[1], m[2]} * Pair{m[7], m[7]} - Pair{m[5], m[6]} * Pair{m[3], m[3]};
    Pair c01 = Pair{m[8], m[8]} * Pair{m[13], m[14]} - Pair{m[12], m[12]} * Pair{m[9], m[10]};
    Pair c23 = Pair{m[8], m[9]} * Pair{m[15], m[14]} - Pair{m[12], m[13]} * Pair{m[11], m[10]};
    Pair c45 = Pair{m[9], m[10]} * Pair{m[15], m[15]} - Pair{m[13], m[14]} * Pair{m[11], m[11]};
    double s0 = s01[0], s1 = s01[1], s2 = s23[0], s3 = s23[1], s4 = s45[0], s5 = s45[1];
    double c0 = c01[0], c1 = c01[1], c2 = c23[0], c3 = c23[1], c4 = c45[0], c5 = c45[1];
    double det = s0 * c5 - s1 * c4 + s2 * c3 + s3 * c2 - s4 * c1 + s5 * c0;
    // Pairwise halving, which the compiler turns into packed maxima.
    double half[8];
    for (int i = 0; i < 8; ++i)
        half[i] = larger(fabs(m[i]), fabs(m[i + 8]));
    for (int i = 0; i < 4; ++i)
        half[i] = larger(half[i], half[i + 4]);
    double maxAbs = larger(larger(half[0], half[2]), larger(half[1], half[3]));
    double scale = maxAbs * maxAbs;
    if (!(fabs(det) > kSingularTolerance * scale * scale) || !isfinite(maxAbs)) return false;
    double inv = 1.0 / det;
    // Columns 0 and 1 of rows 1 and 3, swapped into (row 1, row 0) and (row 3, row 2) pairs:
    // each output pair is an entry of an odd and of an even column, opposite in sign.
    Pair a = {m[4], m[0]}, b = {m[5], m[1]}, c = {m[6], m[2]}, d = {m[7], m[3]};
    Pair f = {m[12], m[8]}, g = {m[13], m[9]}, h = {m[14], m[10]}, k = {m[15], m[11]};
    Pair plus = {inv, -inv};
    Pair minus = {-inv, inv};
    Pair r01 = plus * (b * c5 - c * c4 + d * c3);
    Pair r23 = plus * (g * s5 - h * s4 + k * s3);
    Pair r45 = minus * (a * c5 - c * c2 + d * c1);
    Pair r67 = minus * (f * s5 - h * s2 + k * s1);
    Pair r89 = plus * (a * c4 - b * c2 + d * c0);
    Pair r1011 = plus * (f * s4 - g * s2 + k * s0);
    Pair r1213 = minus * (a * c3 - b * c1 + c * c0);
    Pair r1415 = minus * (f * s3 - g * s1 + h * s0);
    memcpy(e, &r01, sizeof r01);
    memcpy(e + 2, &r23, sizeof r23);
    memcpy(e + 4, &r45, sizeof r45);
    memcpy(e + 6, &r67, sizeof r67);
    memcpy(e + 8, &r89, sizeof r89);
    memcpy(e + 10, &r1011, sizeof r1011);
    memcpy(e + 12, &r1213, sizeof r1213);
    memcpy(e + 14, &r1415, sizeof r1415);
    return true;
}

}  // namespace

// --- KR_3DMatrix ---

KR_3DMatrix::KR_3DMatrix() : KR_Matrix(4, 4) {
    fixedShape_ = 1;
    double* e = elemsQuiet();
    if (e != nullptr) identity4(e);
}

KR_3DMatrix::KR_3DMatrix(const KR_3DMatrix& other) : KR_Matrix(other) {
    fixedShape_ = 1;
}

KR_3DMatrix::~KR_3DMatrix() {}

KR_3DMatrix& KR_3DMatrix::operator=(const KR_3DMatrix& other) {
    KR_Matrix::operator=(other);
    return *this;
}

KR_RET_STATUS KR_3DMatrix::setIdentity() {
    krInternal::clearUserError();
    if (!objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    double* e = elemsQuiet();
    if (e == nullptr) {
        // The block was broken through the base: a fresh one makes the matrix sound again.
        e = static_cast<double*>(krInternal::allocBlock(16 * sizeof(double)));
        if (e == nullptr) return KRI_FAIL_MSG(KR_RET_ERR_MEM, KR_msg(3, 1), KR_msg(0, 1));
        adopt(e, 4, 4);
    }
    identity4(e);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_3DMatrix::setTranslation(double tx, double ty, double tz) {
    krInternal::clearUserError();
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = block(status);
    if (e == nullptr) return status;
    identity4(e);
    e[3] = tx;
    e[7] = ty;
    e[11] = tz;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_3DMatrix::setScaling(double sx, double sy, double sz) {
    krInternal::clearUserError();
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = block(status);
    if (e == nullptr) return status;
    identity4(e);
    e[0] = sx;
    e[5] = sy;
    e[10] = sz;
    return KR_RET_TRUE;
}

// A rotation by a in the plane of axes i and j (i to j is the positive sense), the third axis
// fixed.
KR_RET_STATUS KR_3DMatrix::setPlaneRotation(int i, int j, double a) {
    krInternal::clearUserError();
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = block(status);
    if (e == nullptr) return status;
    double c = cos(a);
    double s = sin(a);
    identity4(e);
    e[i * 4 + i] = c;
    e[i * 4 + j] = -s;
    e[j * 4 + i] = s;
    e[j * 4 + j] = c;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_3DMatrix::setRotationX(double a) {
    return setPlaneRotation(1, 2, a);
}

KR_RET_STATUS KR_3DMatrix::setRotationY(double a) {
    return setPlaneRotation(2, 0, a);
}

KR_RET_STATUS KR_3DMatrix::setRotationZ(double a) {
    return setPlaneRotation(0, 1, a);
}

KR_RET_STATUS KR_3DMatrix::setRotationAxis(const KR_Vector& axis, double a) {
    krInternal::clearUserError();
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = block(status);
    if (e == nullptr) return status;
    KR_Vector u = axis;
    if (u.normalize() != KR_RET_TRUE)
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_3DMatrix rotation: ", "zero rotation axis\n");
    double c = cos(a);
    double s = sin(a);
    double t = 1.0 - c;
    double m[16] = {c + u.x * u.x * t,
                    u.x * u.y * t - u.z * s,
                    u.x * u.z * t + u.y * s,
                    0.0,
                    u.x * u.y * t + u.z * s,
                    c + u.y * u.y * t,
                    u.y * u.z * t - u.x * s,
                    0.0,
                    u.x * u.z * t - u.y * s,
                    u.y * u.z * t + u.x * s,
                    c + u.z * u.z * t,
                    0.0,
                    0.0,
                    0.0,
                    0.0,
                    1.0};
    memcpy(e, m, sizeof m);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_3DMatrix::setRotation(const KR_Quaternion& q) {
    krInternal::clearUserError();
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = block(status);
    if (e == nullptr) return status;
    KR_Quaternion u = q;
    if (u.normalize() != KR_RET_TRUE)
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_3DMatrix rotation: ", "zero quaternion\n");
    double xx = u.x * u.x, yy = u.y * u.y, zz = u.z * u.z;
    double xy = u.x * u.y, xz = u.x * u.z, yz = u.y * u.z;
    double wx = u.w * u.x, wy = u.w * u.y, wz = u.w * u.z;
    double m[16] = {1.0 - 2.0 * (yy + zz),
                    2.0 * (xy - wz),
                    2.0 * (xz + wy),
                    0.0,
                    2.0 * (xy + wz),
                    1.0 - 2.0 * (xx + zz),
                    2.0 * (yz - wx),
                    0.0,
                    2.0 * (xz - wy),
                    2.0 * (yz + wx),
                    1.0 - 2.0 * (xx + yy),
                    0.0,
                    0.0,
                    0.0,
                    0.0,
                    1.0};
    memcpy(e, m, sizeof m);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_3DMatrix::setLookAt(const KR_Vector& eye,
                                     const KR_Vector& target,
                                     const KR_Vector& up) {
    krInternal::clearUserError();
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = block(status);
    if (e == nullptr) return status;
    KR_Vector f = target - eye;
    double upLength = up.length();
    if (!finiteAll({eye.x, eye.y, eye.z, target.x, target.y, target.z}) ||
        f.normalize() != KR_RET_TRUE || !(upLength > 0.0) || !isfinite(upLength))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_3DMatrix look-at: ",
                            "eye equals target, or a vector is zero or not finite\n");
    KR_Vector s = f.cross(up);
    if (!(s.length() > kSingularTolerance * upLength))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG,
                            "KR_3DMatrix look-at: ", "up is parallel to the view direction\n");
    s.normalize();
    KR_Vector u = s.cross(f);
    double m[16] = {s.x,  s.y,  s.z,  -s.dot(eye), u.x, u.y, u.z, -u.dot(eye),
                    -f.x, -f.y, -f.z, f.dot(eye),  0.0, 0.0, 0.0, 1.0};
    memcpy(e, m, sizeof m);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_3DMatrix::setPerspective(
        double fovY, double aspect, double zNear, double zFar, KR_MTH_DEPTH_RANGE range) {
    krInternal::clearUserError();
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = block(status);
    if (e == nullptr) return status;
    if (!(fovY > 0.0 && fovY < 3.14159265358979323846) || !(aspect > 0.0) || !(zNear > 0.0) ||
        !(zNear < zFar) || !finiteAll({aspect, zFar}))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_3DMatrix perspective: ",
                            "fovY %lf, aspect %lf, near %lf, far %lf\n", fovY, aspect, zNear, zFar);
    double tanHalfFovy = tan(fovY / 2.0);
    double m[16] = {0.0};
    m[0] = 1.0 / (aspect * tanHalfFovy);
    m[5] = 1.0 / tanHalfFovy;
    if (range == KR_MTH_DEPTH_ZERO_TO_ONE) {
        m[10] = zFar / (zNear - zFar);
        m[11] = -(zFar * zNear) / (zFar - zNear);
    } else {
        m[10] = -(zFar + zNear) / (zFar - zNear);
        m[11] = -(2.0 * zFar * zNear) / (zFar - zNear);
    }
    m[14] = -1.0;
    memcpy(e, m, sizeof m);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_3DMatrix::setOrtho(
        double l, double r, double b, double t, double n, double f, KR_MTH_DEPTH_RANGE range) {
    krInternal::clearUserError();
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = block(status);
    if (e == nullptr) return status;
    if (!finiteAll({l, r, b, t, n, f}) || l == r || b == t || !(n < f))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_3DMatrix orthographic projection: ",
                            "l %lf, r %lf, b %lf, t %lf, n %lf, f %lf\n", l, r, b, t, n, f);
    double m[16];
    identity4(m);
    m[0] = 2.0 / (r - l);
    m[5] = 2.0 / (t - b);
    m[3] = -(r + l) / (r - l);
    m[7] = -(t + b) / (t - b);
    if (range == KR_MTH_DEPTH_ZERO_TO_ONE) {
        m[10] = -1.0 / (f - n);
        m[11] = -n / (f - n);
    } else {
        m[10] = -2.0 / (f - n);
        m[11] = -(f + n) / (f - n);
    }
    memcpy(e, m, sizeof m);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_3DMatrix::setFrustum(
        double l, double r, double b, double t, double n, double f, KR_MTH_DEPTH_RANGE range) {
    krInternal::clearUserError();
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = block(status);
    if (e == nullptr) return status;
    if (!finiteAll({l, r, b, t, n, f}) || l == r || b == t || !(n > 0.0) || !(n < f))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG,
                            "KR_3DMatrix frustum: ", "l %lf, r %lf, b %lf, t %lf, n %lf, f %lf\n",
                            l, r, b, t, n, f);
    double m[16] = {0.0};
    m[0] = (2.0 * n) / (r - l);
    m[5] = (2.0 * n) / (t - b);
    m[2] = (r + l) / (r - l);
    m[6] = (t + b) / (t - b);
    if (range == KR_MTH_DEPTH_ZERO_TO_ONE) {
        m[10] = f / (n - f);
        m[11] = -(f * n) / (f - n);
    } else {
        m[10] = -(f + n) / (f - n);
        m[11] = -(2.0 * f * n) / (f - n);
    }
    m[14] = -1.0;
    memcpy(e, m, sizeof m);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_3DMatrix::reportBroken(const KR_3DMatrix& a, const KR_3DMatrix& b) const {
    KR_RET_STATUS status = KR_RET_TRUE;
    if (block(status) != nullptr && a.block(status) != nullptr) b.block(status);
    return status;
}

KR_RET_STATUS KR_3DMatrix::invertAny() {
    krInternal::clearUserError();
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = block(status);
    if (e == nullptr) return status;
    if (!(krInternal::mthIsAffine(e) ? krInternal::mthInvertAffine(e) : invertGeneral(e)))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, KR_msg(3, 9), KR_msg(3, 10));
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_3DMatrix::transformPoint(const KR_Vector& p, KR_Vector& out) const {
    krInternal::clearUserError();
    KR_RET_STATUS status = KR_RET_TRUE;
    const double* m = block(status);
    if (m == nullptr) return status;
    double x = m[0] * p.x + m[1] * p.y + m[2] * p.z + m[3];
    double y = m[4] * p.x + m[5] * p.y + m[6] * p.z + m[7];
    double z = m[8] * p.x + m[9] * p.y + m[10] * p.z + m[11];
    double w = m[12] * p.x + m[13] * p.y + m[14] * p.z + m[15];
    if (w == 0.0) {
        out = KR_Vector(x, y, z);
        return KR_RET_FALSE;
    }
    double inv = 1.0 / w;
    out = KR_Vector(x * inv, y * inv, z * inv);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_3DMatrix::transformDir(const KR_Vector& d, KR_Vector& out) const {
    krInternal::clearUserError();
    KR_RET_STATUS status = KR_RET_TRUE;
    const double* m = block(status);
    if (m == nullptr) return status;
    out = KR_Vector(m[0] * d.x + m[1] * d.y + m[2] * d.z, m[4] * d.x + m[5] * d.y + m[6] * d.z,
                    m[8] * d.x + m[9] * d.y + m[10] * d.z);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_3DMatrix::getTranslation(KR_Vector& t) const {
    krInternal::clearUserError();
    KR_RET_STATUS status = KR_RET_TRUE;
    const double* m = block(status);
    if (m == nullptr) return status;
    t = KR_Vector(m[3], m[7], m[11]);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_3DMatrix::getFloats(float out[16], unsigned char columnMajor) const {
    krInternal::clearUserError();
    KR_RET_STATUS status = KR_RET_TRUE;
    const double* m = block(status);
    if (m == nullptr) return status;
    if (out == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            out[columnMajor ? c * 4 + r : r * 4 + c] = static_cast<float>(m[r * 4 + c]);
    return KR_RET_TRUE;
}

// --- KR_VectorArr ---

KR_RET_STATUS KR_VectorArr::transform(const KR_Matrix& m) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    KR_RET_STATUS status = KR_RET_TRUE;
    const double* e = m.elems(status);
    if (e == nullptr) return status;
    unsigned int rows = m.getRows();
    unsigned int cols = m.getCols();
    if (!((rows == 3 && cols == 3) || (rows == 4 && cols == 4))) {
        KR_reportErrorMsg(KRI_UNIT, __LINE__, KR_msg(3, 4), KR_msg(3, 5),
                          static_cast<int>(numVecs_), 3, static_cast<int>(rows),
                          static_cast<int>(cols));
        return KRI_FAIL(KR_RET_ERR_ARG);
    }
    KR_Vector* v = vecs_;
    unsigned int n = numVecs_;
    if (rows == 3) {
        for (unsigned int i = 0; i < n; ++i) {
            KR_Vector p = v[i];
            v[i] = KR_Vector(e[0] * p.x + e[1] * p.y + e[2] * p.z,
                             e[3] * p.x + e[4] * p.y + e[5] * p.z,
                             e[6] * p.x + e[7] * p.y + e[8] * p.z);
        }
        return KR_RET_TRUE;
    }
    double m4[16];
    memcpy(m4, e, sizeof m4);
    if (m4[12] == 0.0 && m4[13] == 0.0 && m4[14] == 0.0 && m4[15] == 1.0) {
        // Affine: w' is 1 for every finite vertex, so no w' is computed or divided by.
        for (unsigned int i = 0; i < n; ++i) {
            KR_Vector p = v[i];
            v[i] = KR_Vector(m4[0] * p.x + m4[1] * p.y + m4[2] * p.z + m4[3],
                             m4[4] * p.x + m4[5] * p.y + m4[6] * p.z + m4[7],
                             m4[8] * p.x + m4[9] * p.y + m4[10] * p.z + m4[11]);
        }
        return KR_RET_TRUE;
    }
    bool zeroW = false;
    for (unsigned int i = 0; i < n; ++i) {
        KR_Vector p = v[i];
        double x = m4[0] * p.x + m4[1] * p.y + m4[2] * p.z + m4[3];
        double y = m4[4] * p.x + m4[5] * p.y + m4[6] * p.z + m4[7];
        double z = m4[8] * p.x + m4[9] * p.y + m4[10] * p.z + m4[11];
        double w = m4[12] * p.x + m4[13] * p.y + m4[14] * p.z + m4[15];
        if (w != 1.0) {
            if (w != 0.0) {
                double inv = 1.0 / w;
                x *= inv;
                y *= inv;
                z *= inv;
            } else {
                zeroW = true;
            }
        }
        v[i] = KR_Vector(x, y, z);
    }
    return zeroW ? KR_RET_FALSE : KR_RET_TRUE;
}
