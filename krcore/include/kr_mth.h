// kr_mth.h — double-precision 3-D geometry: vectors, lines, planes, quaternions, rectangles and
// matrices.
// The records (KR_Vector, KR_SphereCoord, KR_Plane, KR_ParamLine, KR_Quaternion, KR_Rect,
// KR_RectF) are plain values with pure operations; KR_VectorArr owns an array of vertices,
// KR_Matrix is a general rows x cols matrix kept in its KR_Memory block and KR_3DMatrix a 4 x 4
// homogeneous transform with the projections of a right-handed eye space.
//
// Conventions: right-handed coordinates (x cross y = z); column vectors, v' = M v, so M N
// applies N first; matrices are stored row-major and m(0,3), m(1,3), m(2,3) is the translation;
// angles are radians and a positive rotation turns counter-clockwise seen from the positive
// axis towards the origin; quaternions are Hamilton's (ij = k), stored w, x, y, z, rotate
// actively (v' = q v q*), and q1 q2 applies q2 first; spherical coordinates are ISO 80000-2
// (r >= 0, polar theta in [0, pi] from +z, azimuth phi in (-pi, pi] from +x towards +y);
// rectangles are half-open, [left, right) x [top, bottom), with y growing downwards.
//
// Pure value operations. The arithmetic of the records (KR_Vector, KR_Quaternion, KR_Plane,
// KR_ParamLine, KR_SphereCoord, KR_Rect, KR_RectF, their members and operators, and the free
// functions KR_mthDegToRad, KR_mthRadToDeg, KR_mthSphereToVector, KR_mthVectorToSphere and
// KR_mthSlerp) neither clears the user error nor reports: these operations cannot fail, so the
// hot paths stay free of stores to process-wide cells and are safe on any thread. They follow
// IEEE arithmetic (a division by zero gives an infinity, a NaN propagates); where a result is
// undefined they answer KR_RET_FALSE and leave their output as documented. The exceptions are
// KR_Vector::operator[] (an index can be out of range: it reports), KR_Quaternion::toMatrix and
// fromMatrix (they use a matrix object), and every member of the classes, which clear the user
// error and report their failures as the rest of the library does.
#ifndef KRCORE_KR_MTH_H
#define KRCORE_KR_MTH_H

#include <math.h>
#include <stddef.h>
#include <stdint.h>

#include "kr_globals.h"
#include "kr_iostream.h"
#include "kr_mem.h"
#include "kr_reporter.h"

class KR_Matrix;
class KR_3DMatrix;

// The NDC depth range of a projection: near maps to 0 or to -1, far to 1.
enum KR_MTH_DEPTH_RANGE { KR_MTH_DEPTH_ZERO_TO_ONE = 0, KR_MTH_DEPTH_MINUS_ONE_TO_ONE = 1 };

// KR_Vector — a point or direction (x, y, z). Arithmetic is inline and pure; operator[] is the
// only member that reports.
struct KR_API KR_Vector {
    double x, y, z;

    KR_Vector() : x(0.0), y(0.0), z(0.0) {}

    KR_Vector(double xv, double yv, double zv) : x(xv), y(yv), z(zv) {}

    KR_Vector operator+(const KR_Vector& v) const { return KR_Vector(x + v.x, y + v.y, z + v.z); }

    KR_Vector operator-(const KR_Vector& v) const { return KR_Vector(x - v.x, y - v.y, z - v.z); }

    KR_Vector operator-() const { return KR_Vector(-x, -y, -z); }

    KR_Vector operator*(double s) const { return KR_Vector(x * s, y * s, z * s); }

    KR_Vector operator/(double s) const { return KR_Vector(x / s, y / s, z / s); }

    KR_Vector& operator+=(const KR_Vector& v) {
        x += v.x;
        y += v.y;
        z += v.z;
        return *this;
    }

    KR_Vector& operator-=(const KR_Vector& v) {
        x -= v.x;
        y -= v.y;
        z -= v.z;
        return *this;
    }

    KR_Vector& operator*=(double s) {
        x *= s;
        y *= s;
        z *= s;
        return *this;
    }

    KR_Vector& operator/=(double s) {
        x /= s;
        y /= s;
        z /= s;
        return *this;
    }

    double dot(const KR_Vector& v) const { return x * v.x + y * v.y + z * v.z; }

    KR_Vector cross(const KR_Vector& v) const {
        return KR_Vector(y * v.z - z * v.y, z * v.x - x * v.z, x * v.y - y * v.x);
    }

    double lengthSq() const { return x * x + y * y + z * z; }

    double length() const { return sqrt(x * x + y * y + z * z); }

    double distance(const KR_Vector& v) const { return (*this - v).length(); }

    // Scales to length 1. KR_RET_FALSE, vector unchanged, when the length is 0 or not finite.
    KR_RET_STATUS normalize() {
        double len = length();
        if (!(len > 0.0) || !(len <= 1.7976931348623157e308)) return KR_RET_FALSE;
        double inv = 1.0 / len;
        x *= inv;
        y *= inv;
        z *= inv;
        return KR_RET_TRUE;
    }

    // Every component within tol of v's (|a - b| <= tol); false when either holds a NaN.
    bool isNear(const KR_Vector& v, double tol) const {
        return fabs(x - v.x) <= tol && fabs(y - v.y) <= tol && fabs(z - v.z) <= tol;
    }

    // Exact per component: -0 equals 0, a NaN never equals.
    bool operator==(const KR_Vector& v) const { return x == v.x && y == v.y && z == v.z; }

    bool operator!=(const KR_Vector& v) const { return !(*this == v); }

    // x, y or z for 0, 1 or 2; clears the user error. Any other index reports "KR_Vector:
    // element access" with "Index %d not in [0,2]" and returns the KR_NULL_PTR reference,
    // which must not be written.
    double& operator[](unsigned int i) {
        krInternal::clearUserError();
        if (i == 0) return x;
        if (i == 1) return y;
        if (i == 2) return z;
        return badIndex(i);
    }

private:
    static double& badIndex(unsigned int i);
};

inline KR_Vector operator*(double s, const KR_Vector& v) {
    return v * s;
}

// KR_SphereCoord — spherical coordinates (ISO 80000-2): radius, polar angle from +z, azimuth.
struct KR_API KR_SphereCoord {
    double r, theta, phi;

    KR_SphereCoord() : r(0.0), theta(0.0), phi(0.0) {}

    KR_SphereCoord(double rv, double thetaV, double phiV) : r(rv), theta(thetaV), phi(phiV) {}
};

// KR_Plane — the points p with normal . p + d = 0; the side the normal points to is "inside"
// (positive signed distance). The distance is in units of |normal|: normalize for true lengths.
struct KR_API KR_Plane {
    KR_Vector normal;
    double d;

    KR_Plane() : normal(0.0, 0.0, 1.0), d(0.0) {}

    KR_Plane(const KR_Vector& n, double dv) : normal(n), d(dv) {}

    // The plane through p with normal n (not normalised).
    void fromPointNormal(const KR_Vector& p, const KR_Vector& n) {
        normal = n;
        d = -n.dot(p);
    }

    // The plane through a, b, c, normal (b - a) x (c - a) made unit: counter-clockwise points
    // face the inside. KR_RET_FALSE, plane unchanged, when the points are collinear (the cross
    // product is not longer than 1e-12 |b - a| |c - a|) or not finite.
    KR_RET_STATUS fromPoints(const KR_Vector& a, const KR_Vector& b, const KR_Vector& c);

    // Scales normal and d so that |normal| = 1; KR_RET_FALSE, unchanged, for a zero or
    // non-finite normal.
    KR_RET_STATUS normalize();

    double signedDistance(const KR_Vector& p) const { return normal.dot(p) + d; }
};

// KR_ParamLine — P(t) = point + t dir.
struct KR_API KR_ParamLine {
    KR_Vector point;
    KR_Vector dir;

    KR_ParamLine() {}

    KR_ParamLine(const KR_Vector& p, const KR_Vector& d) : point(p), dir(d) {}

    // The line from a (t = 0) to b (t = 1): dir = b - a.
    void fromPoints(const KR_Vector& a, const KR_Vector& b) {
        point = a;
        dir = b - a;
    }

    KR_Vector pointAt(double t) const { return point + dir * t; }

    // t of the point of the line closest to q; KR_RET_FALSE (t = 0) when dir is zero.
    KR_RET_STATUS closestParam(const KR_Vector& q, double& t) const;
    // Distance of q from the line; for a zero dir the distance from point.
    double distanceTo(const KR_Vector& q) const;
    // t where the line meets the plane; KR_RET_FALSE (t unchanged) when the line is parallel to
    // it: |n . dir| <= 1e-12 |n| |dir|, which includes a zero dir or normal.
    KR_RET_STATUS intersectPlane(const KR_Plane& plane, double& t) const;
    // t1 on this line and t2 on other of the closest pair of points; KR_RET_FALSE (t1, t2
    // unchanged) when the lines are parallel, |dir1 x dir2| <= 1e-12 |dir1| |dir2|, or one
    // direction is zero.
    KR_RET_STATUS closestApproach(const KR_ParamLine& other, double& t1, double& t2) const;
};

// KR_Quaternion — w + xi + yj + zk (Hamilton); the identity by default.
struct KR_API KR_Quaternion {
    double w, x, y, z;

    KR_Quaternion() : w(1.0), x(0.0), y(0.0), z(0.0) {}

    KR_Quaternion(double wv, double xv, double yv, double zv) : w(wv), x(xv), y(yv), z(zv) {}

    // The rotation by angle about axis (normalised here); KR_RET_FALSE, unchanged, for a zero
    // or non-finite axis.
    KR_RET_STATUS fromAxisAngle(const KR_Vector& axis, double angle);

    // Hamilton product: (this * q) rotates by q first.
    KR_Quaternion operator*(const KR_Quaternion& q) const {
        return KR_Quaternion(
                w * q.w - x * q.x - y * q.y - z * q.z, w * q.x + x * q.w + y * q.z - z * q.y,
                w * q.y - x * q.z + y * q.w + z * q.x, w * q.z + x * q.y - y * q.x + z * q.w);
    }

    KR_Quaternion conjugate() const { return KR_Quaternion(w, -x, -y, -z); }

    double dot(const KR_Quaternion& q) const { return w * q.w + x * q.x + y * q.y + z * q.z; }

    double norm() const { return sqrt(w * w + x * x + y * y + z * z); }

    // Scales to norm 1; KR_RET_FALSE, unchanged, when the norm is 0 or not finite.
    KR_RET_STATUS normalize();
    // out = conjugate / norm^2; KR_RET_FALSE, out unchanged, when the norm is 0 or not finite.
    KR_RET_STATUS inverse(KR_Quaternion& out) const;

    // v + 2w (u x v) + 2u x (u x v) with u = (x, y, z): q v q* for a unit quaternion. Normalise
    // a quaternion of another norm first.
    KR_Vector rotate(const KR_Vector& v) const {
        KR_Vector u(x, y, z);
        KR_Vector uv = u.cross(v);
        KR_Vector uuv = u.cross(uv);
        return v + (uv * w + uuv) * 2.0;
    }

    // m := the rotation of this quaternion (normalised first). Not pure: clears the user error;
    // KR_RET_ERR_ARG (reported, m unchanged) for a zero or non-finite quaternion, and m's own
    // failures (KR_RET_ERR_POBJ, KR_RET_ERR_CALL) go up.
    KR_RET_STATUS toMatrix(KR_3DMatrix& m) const;
    // This := the unit quaternion of m's upper 3 x 3 rotation (Shepperd's method; w >= 0 when
    // w is the largest component). Not pure: m's failures are reported and returned.
    KR_RET_STATUS fromMatrix(const KR_3DMatrix& m);
};

// KR_Rect — integer pixels [left, right) x [top, bottom), y downwards. Everything is computed
// in 64 bits and clamped to the int range, so no operation overflows.
struct KR_RectF;

struct KR_API KR_Rect {
    int left, top, right, bottom;

    KR_Rect() : left(0), top(0), right(0), bottom(0) {}

    KR_Rect(int l, int t, int r, int b) : left(l), top(t), right(r), bottom(b) {}

    // right - left, clamped to [INT_MIN, INT_MAX] (negative for a reversed rectangle).
    int width() const;
    int height() const;

    bool isEmpty() const { return right <= left || bottom <= top; }

    // Swaps reversed edges so that left <= right and top <= bottom.
    void normalize();

    // left <= x < right and top <= y < bottom.
    bool contains(int x, int y) const { return x >= left && x < right && y >= top && y < bottom; }

    // r lies inside this rectangle; false for an empty r.
    bool contains(const KR_Rect& r) const;
    // Both are non-empty and share at least one pixel.
    bool intersects(const KR_Rect& r) const;
    // out = the common part; KR_RET_FALSE and out = {0, 0, 0, 0} when there is none.
    KR_RET_STATUS intersect(const KR_Rect& r, KR_Rect& out) const;
    // out = the smallest rectangle holding both; an empty operand is ignored (both empty:
    // out = {0, 0, 0, 0}).
    void unite(const KR_Rect& r, KR_Rect& out) const;
    // Edges moved by dx, dy; inflate moves left/top out by dx/dy and right/bottom likewise
    // (negative values shrink). Edges saturate at INT_MIN and INT_MAX.
    void offset(int dx, int dy);
    void inflate(int dx, int dy);
    KR_RectF toRectF() const;

    bool operator==(const KR_Rect& r) const {
        return left == r.left && top == r.top && right == r.right && bottom == r.bottom;
    }
};

// KR_RectF — the same in double precision: [left, right) x [top, bottom).
struct KR_API KR_RectF {
    double left, top, right, bottom;

    KR_RectF() : left(0.0), top(0.0), right(0.0), bottom(0.0) {}

    KR_RectF(double l, double t, double r, double b) : left(l), top(t), right(r), bottom(b) {}

    double width() const { return right - left; }

    double height() const { return bottom - top; }

    // Also true when an edge is NaN.
    bool isEmpty() const { return !(right > left) || !(bottom > top); }

    void normalize();

    bool contains(double x, double y) const {
        return x >= left && x < right && y >= top && y < bottom;
    }

    bool contains(const KR_RectF& r) const;
    bool intersects(const KR_RectF& r) const;
    KR_RET_STATUS intersect(const KR_RectF& r, KR_RectF& out) const;
    void unite(const KR_RectF& r, KR_RectF& out) const;

    void offset(double dx, double dy) {
        left += dx;
        right += dx;
        top += dy;
        bottom += dy;
    }

    void inflate(double dx, double dy) {
        left -= dx;
        right += dx;
        top -= dy;
        bottom += dy;
    }

    // Rounds outwards: floor of left and top, ceil of right and bottom. An edge outside the int
    // range (infinities included) saturates to INT_MIN or INT_MAX; a NaN edge becomes 0.
    KR_Rect toRect() const;

    bool operator==(const KR_RectF& r) const {
        return left == r.left && top == r.top && right == r.right && bottom == r.bottom;
    }
};

extern "C" {
KR_API double KR_mthDegToRad(double degrees);
KR_API double KR_mthRadToDeg(double radians);
}

// x = r sin(theta) cos(phi), y = r sin(theta) sin(phi), z = r cos(theta).
KR_API void KR_mthSphereToVector(const KR_SphereCoord& s, KR_Vector& v);
// r = |v|, theta = atan2(sqrt(x^2 + y^2), z), phi = atan2(y, x), with phi = pi where atan2
// answers -pi (y = -0 and x < 0) and -0 answered as +0, so phi stays inside (-pi, pi]. The zero
// vector gives (0, 0, 0); a NaN component gives NaN angles.
KR_API void KR_mthVectorToSphere(const KR_Vector& v, KR_SphereCoord& s);
// Spherical interpolation from a (t = 0) to b (t = 1) along the shorter arc (b is negated when
// a . b < 0); above a . b = 0.9995 normalised linear interpolation. Inputs should be unit.
KR_API void KR_mthSlerp(const KR_Quaternion& a,
                        const KR_Quaternion& b,
                        double t,
                        KR_Quaternion& out);

// Printers through the stream's own overloads (numbers as "%lf" through a console handler):
// "(x, y, z)" and "(px, py, pz) + t (dx, dy, dz)".
KR_API KR_OStream& operator<<(KR_OStream& stream, const KR_Vector& v);
KR_API KR_OStream& operator<<(KR_OStream& stream, const KR_ParamLine& line);

// KR_VectorArr — an owned array of vertices (calloc; null when empty). A failed operation leaves
// its target unchanged; + and - of arrays with different counts report and return an empty,
// initialised array. After a failed construction every member answers KR_RET_ERR_POBJ.
class KR_API KR_VectorArr : public KR_KorvaneClass {
public:
    // n zero vertices; not initialised if they cannot be allocated.
    explicit KR_VectorArr(unsigned int n = 0);
    KR_VectorArr(const KR_VectorArr& other);
    ~KR_VectorArr() override;
    // Reports and keeps the target when the copy cannot be allocated.
    KR_VectorArr& operator=(const KR_VectorArr& other);

    unsigned int numVecs() const { return numVecs_; }

    // Keeps the first min(n, old) vertices; new ones are zero.
    KR_RET_STATUS resize(unsigned int n);

    // Out of range: "KR_VectorArr array reference" with "Index %d not in [0,n-1]" and the
    // KR_NULL_PTR reference, which must not be written.
    KR_Vector& operator[](unsigned int i);

    // Per vertex; different counts report and change nothing.
    KR_VectorArr& operator+=(const KR_VectorArr& other);
    KR_VectorArr& operator-=(const KR_VectorArr& other);
    KR_VectorArr operator+(const KR_VectorArr& other) const;
    KR_VectorArr operator-(const KR_VectorArr& other) const;
    // A divisor of 0.0 reports "Division by zero" and changes nothing (or returns an empty
    // array).
    KR_VectorArr& operator/=(double s);
    KR_VectorArr operator/(double s) const;
    KR_VectorArr& operator*=(double s);

    // Every vertex by m: 3 x 3 gives M v; 4 x 4 is homogeneous with w = 1 and divides by w'
    // unless w' is 0 or 1. KR_RET_FALSE when some w' was 0 (those vertices stay undivided);
    // any other shape is KR_RET_ERR_ARG and changes nothing. An affine m (row 3 exactly
    // 0, 0, 0, 1) takes w' as 1 without computing it, so a non-finite vertex is not divided by
    // the NaN w' it would give.
    KR_RET_STATUS transform(const KR_Matrix& m);
    // KR_RET_FALSE (output unchanged) for an empty array.
    KR_RET_STATUS centroid(KR_Vector& c) const;
    KR_RET_STATUS bounds(KR_Vector& min, KR_Vector& max) const;

    unsigned char objIsEnabled() const { return initialised_; }

    // The vertices, for loops that index without checks; null when empty.
    KR_Vector* data() { return vecs_; }

    const KR_Vector* data() const { return vecs_; }

private:
    KR_RET_STATUS initDataMembers(unsigned int n);
    KR_RET_STATUS cleanupDataMembers();
    KR_RET_STATUS combine(const KR_VectorArr& other, int sign, unsigned int textId);

    unsigned char initialised_;
    unsigned int numVecs_;
    KR_Vector* vecs_;  // null exactly when numVecs_ is 0
};

// One "(x, y, z)" line per vertex.
KR_API KR_OStream& operator<<(KR_OStream& stream, const KR_VectorArr& a);

// KR_Matrix — rows x cols doubles, row-major, in the KR_Memory block (rows x cols x 8 must fit
// in 32 bits). Copying copies shape and numbers; a failed operation leaves the matrix unchanged.
// The block belongs to the KR_Memory base, which can still be changed through it (memSet,
// memExpand, memFree, assignment of a KR_Memory): every member checks that the block holds
// rows x cols aligned doubles before it reads, and otherwise reports KR_RET_ERR_CALL (element
// access: the KR_NULL_PTR reference) until resize, setIdentity of a 3-D matrix or an assignment
// from a sound matrix gives it a proper block again. A larger block (memExpand) keeps working:
// the matrix uses its first rows x cols doubles.
class KR_API KR_Matrix : public KR_Memory {
public:
    // Zeros. A shape whose block would pass 32 bits: KR_RET_ERR_ARG, not initialised.
    explicit KR_Matrix(unsigned int rows = 0, unsigned int cols = 0);
    KR_Matrix(const KR_Matrix& other);
    ~KR_Matrix() override;
    // Shape and numbers of other. A 3-D matrix accepts only a 4 x 4 source (KR_RET_ERR_ARG
    // otherwise); failures are reported and keep the target.
    KR_Matrix& operator=(const KR_Matrix& other);

    unsigned int getRows() const { return rows_; }

    unsigned int getCols() const { return cols_; }

    // A zero matrix of the new shape; KR_RET_ERR_NSUP for a 3-D matrix.
    KR_RET_STATUS resize(unsigned int rows, unsigned int cols);

    // Out of range (or a broken block): "KR_Matrix element access: " with "Index %d not in
    // [%d,%d]" and the KR_NULL_PTR reference.
    double& operator()(unsigned int r, unsigned int c);
    double operator()(unsigned int r, unsigned int c) const;
    // The row r; null after a report.
    double* operator[](unsigned int r);

    // KR_RET_ERR_ARG when not square. A 0 x 0 matrix is square: identity, transpose and invert
    // leave it as it is and its determinant is 1.
    KR_RET_STATUS setIdentity();
    KR_RET_STATUS transpose();
    // LU with partial pivoting on a copy; det 0 for a singular matrix. NaN or infinite elements
    // give the IEEE result.
    KR_RET_STATUS determinant(double& det) const;
    // Gauss-Jordan with partial pivoting. Singular (KR_RET_ERR_ARG, "Matrix not invertible",
    // unchanged) when the largest pivot candidate is <= 1e-12 times the largest |element|, when
    // every element is 0, or when an element is NaN or infinite.
    KR_RET_STATUS invert();
    // this := a b; this may be a or b. Shapes that do not chain: KR_RET_ERR_ARG, unchanged.
    // A 3-D matrix takes only a 4 x 4 product.
    KR_RET_STATUS mul(const KR_Matrix& a, const KR_Matrix& b);

    // By value: each pays one heap block; the result is empty (0 x 0) after a reported failure.
    // Prefer mul and the in-place forms in loops.
    KR_Matrix operator*(const KR_Matrix& b) const;
    KR_Matrix operator+(const KR_Matrix& b) const;
    KR_Matrix operator-(const KR_Matrix& b) const;
    KR_Matrix& operator*=(double s);

    // Equal shapes and == on every value (-0 equals 0, NaN never equals).
    bool operator==(const KR_Matrix& other) const;

    // The initialised flags of the matrix and of its block.
    unsigned char objIsEnabled() const { return initialised_; }

protected:
    friend class KR_VectorArr;
    friend class KR_Camera;

    // The elements when the block holds the shape; otherwise null after a KR_RET_ERR_CALL report
    // (status set) or a KR_RET_ERR_POBJ report.
    double* elems(KR_RET_STATUS& status) const;

    // As elems, but the numbers without any report: null when the block is broken. Inline: every
    // 4 x 4 operation starts with it.
    double* elemsQuiet() const {
        size_t need = static_cast<size_t>(rows_) * cols_ * sizeof(double);
        void* p = initialised_ ? blockPtr() : nullptr;
        if (need == 0)
            return p != nullptr ? static_cast<double*>(p) : &krInternal::nullRef<double>();
        if (p == nullptr || blockSize() < need ||
            reinterpret_cast<uintptr_t>(p) % alignof(double) != 0)
            return nullptr;
        return static_cast<double*>(p);
    }

    // Takes block (rows x cols doubles, from the C allocator) as the new storage.
    void adopt(double* block, unsigned int rows, unsigned int cols);

    unsigned char fixedShape_;  // set by KR_3DMatrix: always 4 x 4

private:
    KR_RET_STATUS initDataMembers(unsigned int rows, unsigned int cols);
    KR_RET_STATUS cleanupDataMembers();
    KR_RET_STATUS combine(const KR_Matrix& b, double sign, KR_Matrix& out) const;

    unsigned char initialised_;
    unsigned int rows_;
    unsigned int cols_;
};

// One "[a, b, c]" line per row.
KR_API KR_OStream& operator<<(KR_OStream& stream, const KR_Matrix& m);

namespace krInternal {
// r = a b for row-major 4 x 4 matrices; r may be a or b: b is read whole before the first store,
// and each row of a before its row of r is written. Inline so that a product in a host's loop
// compiles to the same code as one written there.
inline void mthMultiply4(double* r, const double* a, const double* b) {
    double b0 = b[0], b1 = b[1], b2 = b[2], b3 = b[3];
    double b4 = b[4], b5 = b[5], b6 = b[6], b7 = b[7];
    double b8 = b[8], b9 = b[9], b10 = b[10], b11 = b[11];
    double b12 = b[12], b13 = b[13], b14 = b[14], b15 = b[15];
    for (int i = 0; i < 16; i += 4) {
        double a0 = a[i];
        double a1 = a[i + 1];
        double a2 = a[i + 2];
        double a3 = a[i + 3];
        r[i] = a0 * b0 + a1 * b4 + a2 * b8 + a3 * b12;
        r[i + 1] = a0 * b1 + a1 * b5 + a2 * b9 + a3 * b13;
        r[i + 2] = a0 * b2 + a1 * b6 + a2 * b10 + a3 * b14;
        r[i + 3] = a0 * b3 + a1 * b7 + a2 * b11 + a3 * b15;
    }
}

// max(a, b) by plain comparison (fmax is a library call).
inline double mthLarger(double a, double b) {
    return a > b ? a : b;
}

// Row 3 of the 4 x 4 matrix m is exactly 0, 0, 0, 1.
inline bool mthIsAffine(const double* m) {
    return m[12] == 0.0 && m[13] == 0.0 && m[14] == 0.0 && m[15] == 1.0;
}

// The inverse of an affine m in place: the 3 x 3 cofactor inverse R^-1 and t' = -R^-1 t.
// False, m untouched, when |det3| <= 1e-12 maxAbs^3 or an element is not finite. Inline, as the
// product: a host's loop over its transforms keeps it free of calls.
inline bool mthInvertAffine(double* e) {
    const double* m = e;
    double c00 = m[5] * m[10] - m[6] * m[9];
    double c01 = m[6] * m[8] - m[4] * m[10];
    double c02 = m[4] * m[9] - m[5] * m[8];
    double det = m[0] * c00 + m[1] * c01 + m[2] * c02;
    double maxAbs = mthLarger(
            mthLarger(mthLarger(fabs(m[0]), fabs(m[1])), mthLarger(fabs(m[2]), fabs(m[4]))),
            mthLarger(mthLarger(fabs(m[5]), fabs(m[6])),
                      mthLarger(mthLarger(fabs(m[8]), fabs(m[9])), fabs(m[10]))));
    // A NaN det, an infinite element or a non-finite translation fails the test as well.
    if (!(fabs(det) > 1e-12 * maxAbs * maxAbs * maxAbs) || !isfinite(maxAbs) ||
        !isfinite(m[3] + m[7] + m[11]))
        return false;
    // Everything is read into registers before the first store: m is the target too.
    double inv = 1.0 / det;
    double r0 = c00 * inv;
    double r1 = (m[2] * m[9] - m[1] * m[10]) * inv;
    double r2 = (m[1] * m[6] - m[2] * m[5]) * inv;
    double r4 = c01 * inv;
    double r5 = (m[0] * m[10] - m[2] * m[8]) * inv;
    double r6 = (m[2] * m[4] - m[0] * m[6]) * inv;
    double r8 = c02 * inv;
    double r9 = (m[1] * m[8] - m[0] * m[9]) * inv;
    double r10 = (m[0] * m[5] - m[1] * m[4]) * inv;
    double tx = m[3];
    double ty = m[7];
    double tz = m[11];
    e[0] = r0;
    e[1] = r1;
    e[2] = r2;
    e[3] = -(r0 * tx + r1 * ty + r2 * tz);
    e[4] = r4;
    e[5] = r5;
    e[6] = r6;
    e[7] = -(r4 * tx + r5 * ty + r6 * tz);
    e[8] = r8;
    e[9] = r9;
    e[10] = r10;
    e[11] = -(r8 * tx + r9 * ty + r10 * tz);
    return true;
}
}  // namespace krInternal

// KR_3DMatrix — a 4 x 4 homogeneous transform; starts as the identity and keeps its shape
// (resize answers KR_RET_ERR_NSUP).
//
// The projections are those of a right-handed eye space looking along -z and are exactly glm's
// (0.9.9) right-handed matrices, transposed to this row-major storage: setPerspective, setOrtho
// and setFrustum give perspectiveRH_ZO, orthoRH_ZO and frustumRH_ZO for
// KR_MTH_DEPTH_ZERO_TO_ONE and the *RH_NO forms for KR_MTH_DEPTH_MINUS_ONE_TO_ONE, computed
// with the same expressions. Near maps to depth 0 (or -1), far to 1.
class KR_API KR_3DMatrix : public KR_Matrix {
public:
    KR_3DMatrix();
    KR_3DMatrix(const KR_3DMatrix& other);
    ~KR_3DMatrix() override;
    KR_3DMatrix& operator=(const KR_3DMatrix& other);
    using KR_Matrix::operator=;

    // Also restores a block that was broken through the KR_Memory base.
    KR_RET_STATUS setIdentity();
    KR_RET_STATUS setTranslation(double tx, double ty, double tz);
    KR_RET_STATUS setScaling(double sx, double sy, double sz);
    KR_RET_STATUS setRotationX(double a);
    KR_RET_STATUS setRotationY(double a);
    KR_RET_STATUS setRotationZ(double a);
    // KR_RET_ERR_ARG for a zero or non-finite axis or quaternion.
    KR_RET_STATUS setRotationAxis(const KR_Vector& axis, double a);
    KR_RET_STATUS setRotation(const KR_Quaternion& q);
    // The view matrix of a camera at eye looking along -z towards target with +y leaning
    // towards up. KR_RET_ERR_ARG when eye = target, an argument is not finite, or up is zero or
    // parallel to the view direction: |forward x up| <= 1e-12 |up| for the unit forward.
    KR_RET_STATUS setLookAt(const KR_Vector& eye, const KR_Vector& target, const KR_Vector& up);
    // KR_RET_ERR_ARG unless 0 < fovY < pi, aspect > 0 and 0 < zNear < zFar, all finite.
    KR_RET_STATUS setPerspective(double fovY,
                                 double aspect,
                                 double zNear,
                                 double zFar,
                                 KR_MTH_DEPTH_RANGE range = KR_MTH_DEPTH_ZERO_TO_ONE);
    // KR_RET_ERR_ARG unless l != r, b != t and n < f (any sign), all finite.
    KR_RET_STATUS setOrtho(double l,
                           double r,
                           double b,
                           double t,
                           double n,
                           double f,
                           KR_MTH_DEPTH_RANGE range = KR_MTH_DEPTH_ZERO_TO_ONE);
    // KR_RET_ERR_ARG unless l != r, b != t and 0 < n < f, all finite.
    KR_RET_STATUS setFrustum(double l,
                             double r,
                             double b,
                             double t,
                             double n,
                             double f,
                             KR_MTH_DEPTH_RANGE range = KR_MTH_DEPTH_ZERO_TO_ONE);

    // this := a b with an unrolled kernel; this may be a or b.
    KR_RET_STATUS mul(const KR_3DMatrix& a, const KR_3DMatrix& b) {
        krInternal::clearUserError();
        double* e = elemsQuiet();
        const double* x = a.elemsQuiet();
        const double* y = b.elemsQuiet();
        if (e == nullptr || x == nullptr || y == nullptr) return reportBroken(a, b);
        krInternal::mthMultiply4(e, x, y);
        return KR_RET_TRUE;
    }

    using KR_Matrix::mul;

    // Affine matrices (row 3 exactly 0, 0, 0, 1) take a 3 x 3 cofactor inverse and t' = -R^-1 t
    // (singular when |det3| <= 1e-12 maxAbs^3); others the 4 x 4 cofactor expansion (singular
    // when |det| <= 1e-12 maxAbs^4). A NaN or infinite element is singular too.
    KR_RET_STATUS invert() {
        krInternal::clearUserError();
        double* e = elemsQuiet();
        if (e != nullptr && krInternal::mthIsAffine(e) && krInternal::mthInvertAffine(e))
            return KR_RET_TRUE;
        return invertAny();
    }

    // out = M (p, 1) divided by w'; KR_RET_FALSE (out = the undivided x', y', z') when w' = 0.
    KR_RET_STATUS transformPoint(const KR_Vector& p, KR_Vector& out) const;
    // out = the upper 3 x 3 times d (w = 0).
    KR_RET_STATUS transformDir(const KR_Vector& d, KR_Vector& out) const;
    KR_RET_STATUS getTranslation(KR_Vector& t) const;
    // The sixteen numbers as floats, row by row or (columnMajor != 0) column by column, as
    // graphics interfaces take them.
    KR_RET_STATUS getFloats(float out[16], unsigned char columnMajor) const;

private:
    friend struct KR_Quaternion;

    // The 4 x 4 block; null after a report (status set). The sound case stays inline.
    double* block(KR_RET_STATUS& status) const {
        double* e = elemsQuiet();
        return e != nullptr ? e : elems(status);
    }

    // invert for every case but a sound affine matrix with an inverse.
    KR_RET_STATUS invertAny();
    // The report of the first of this, a and b whose block is broken.
    KR_RET_STATUS reportBroken(const KR_3DMatrix& a, const KR_3DMatrix& b) const;
    KR_RET_STATUS setPlaneRotation(int i, int j, double a);
};

#endif  // KRCORE_KR_MTH_H
