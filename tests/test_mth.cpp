// test_mth.cpp — geometry records, vertex arrays and matrices: glm/Eigen golden tables, the
// edges of every operation, the catalogue reports, a block broken through the base, printers.
#include <float.h>
#include <limits.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "mth_golden.h"
#include "test_support.h"

namespace {

using krtest::golden;
using krtest::nearAll;

const double kPi = 3.14159265358979323846;

// Arithmetic without library calls is bitwise glm's where doubles are evaluated in double
// (SSE2); x87 (linux32) rounds 80-bit intermediates and gets a tolerance.
const double kExactTol = FLT_EVAL_METHOD == 0 ? 0.0 : 1e-15;

void load(KR_Matrix& m, const double* values) {
    for (unsigned int r = 0; r < m.getRows(); ++r)
        for (unsigned int c = 0; c < m.getCols(); ++c)
            m(r, c) = *values++;
}

std::vector<double> numbers(const KR_Matrix& m) {
    std::vector<double> v;
    for (unsigned int r = 0; r < m.getRows(); ++r)
        for (unsigned int c = 0; c < m.getCols(); ++c)
            v.push_back(m(r, c));
    return v;
}

std::string printed;

KR_RET_STATUS collect(char* text) {
    printed += text;
    return KR_RET_TRUE;
}

std::string errorReport(const std::string& text, const std::string& format) {
    return "ERROR: src/kr_mth: line N: " + text + "\n" + format;
}

std::string statusLine(const char* status) {
    return std::string("src/kr_mth: line N: \n") + status + "\n\n";
}

}  // namespace

TEST(MthGolden, FourByFourProductsInversesAndDeterminants) {
    for (const krtest::GoldenRow& row : golden("mul4")) {
        KR_3DMatrix a, b, c;
        load(a, &row[0]);
        load(b, &row[16]);
        ASSERT_KR_OK(c.mul(a, b));
        EXPECT_TRUE(nearAll(numbers(c).data(), &row[32], 16, kExactTol));
        ASSERT_KR_OK(a.mul(a, b));  // aliasing the result with an operand
        EXPECT_EQ(numbers(c), numbers(a));
    }
    for (const krtest::GoldenRow& row : golden("inv4")) {
        KR_3DMatrix a;
        load(a, &row[0]);
        KR_Matrix general(4, 4);
        load(general, &row[0]);
        double det = 0.0;
        ASSERT_KR_OK(a.determinant(det));
        EXPECT_TRUE(nearAll(&det, &row[32], 1));
        ASSERT_KR_OK(a.invert());  // the affine rows take the fast path
        ASSERT_KR_OK(general.invert());
        EXPECT_TRUE(nearAll(numbers(a).data(), &row[16], 16));
        EXPECT_TRUE(nearAll(numbers(general).data(), &row[16], 16));
    }
}

TEST(MthGolden, GeneralMatricesAgainstEigen) {
    for (const krtest::GoldenRow& row : golden("matN")) {
        unsigned int n = static_cast<unsigned int>(row[0]);
        SCOPED_TRACE(n);
        KR_Matrix a(n, n);
        load(a, &row[1]);
        double det = 0.0;
        ASSERT_KR_OK(a.determinant(det));
        EXPECT_TRUE(nearAll(&det, &row[1 + 2 * n * n], 1));
        ASSERT_KR_OK(a.invert());
        EXPECT_TRUE(nearAll(numbers(a).data(), &row[1 + n * n], n * n));
    }
    for (const krtest::GoldenRow& row : golden("mulN")) {
        unsigned int r = static_cast<unsigned int>(row[0]), k = static_cast<unsigned int>(row[1]),
                     c = static_cast<unsigned int>(row[2]);
        KR_Matrix a(r, k), b(k, c), p(1, 1);
        load(a, &row[3]);
        load(b, &row[3 + r * k]);
        ASSERT_KR_OK(p.mul(a, b));
        ASSERT_EQ(r, p.getRows());
        EXPECT_TRUE(nearAll(numbers(p).data(), &row[3 + r * k + k * c], r * c));
        EXPECT_TRUE(a * b == p);
        ASSERT_KR_OK(b.mul(a, b));  // this aliases b and changes shape
        EXPECT_TRUE(b == p);
    }
}

TEST(MthGolden, QuaternionsProjectionsAndLookAt) {
    for (const krtest::GoldenRow& row : golden("quat")) {
        KR_Quaternion a(row[0], row[1], row[2], row[3]), b(row[4], row[5], row[6], row[7]), s;
        KR_Quaternion p = a * b;
        KR_mthSlerp(a, b, row[8], s);
        KR_Vector v = a.rotate(KR_Vector(row[9], row[10], row[11]));
        EXPECT_TRUE(nearAll(&p.w, &row[12], 4));
        EXPECT_TRUE(nearAll(&s.w, &row[16], 4));
        EXPECT_TRUE(nearAll(&v.x, &row[20], 3));
    }
    const KR_MTH_DEPTH_RANGE ranges[] = {KR_MTH_DEPTH_ZERO_TO_ONE, KR_MTH_DEPTH_MINUS_ONE_TO_ONE};
    for (int i = 0; i < 2; ++i) {
        KR_3DMatrix m;
        // tan comes from the platform's C library: last-bit differences, so a tolerance.
        for (const krtest::GoldenRow& row : golden("perspective")) {
            ASSERT_KR_OK(m.setPerspective(row[0], row[1], row[2], row[3], ranges[i]));
            EXPECT_TRUE(nearAll(numbers(m).data(), &row[4 + 16 * i], 16));
        }
        // Ortho and frustum are plain arithmetic with glm's expressions: the same numbers.
        for (const krtest::GoldenRow& row : golden("ortho")) {
            ASSERT_KR_OK(m.setOrtho(row[0], row[1], row[2], row[3], row[4], row[5], ranges[i]));
            EXPECT_TRUE(nearAll(numbers(m).data(), &row[6 + 16 * i], 16, kExactTol));
        }
        for (const krtest::GoldenRow& row : golden("frustum")) {
            ASSERT_KR_OK(m.setFrustum(row[0], row[1], row[2], row[3], row[4], row[5], ranges[i]));
            EXPECT_TRUE(nearAll(numbers(m).data(), &row[6 + 16 * i], 16, kExactTol));
        }
    }
    for (const krtest::GoldenRow& row : golden("lookat")) {
        KR_3DMatrix m;
        ASSERT_KR_OK(m.setLookAt(KR_Vector(row[0], row[1], row[2]),
                                 KR_Vector(row[3], row[4], row[5]),
                                 KR_Vector(row[6], row[7], row[8])));
        EXPECT_TRUE(nearAll(numbers(m).data(), &row[9], 16));
    }
}

TEST(Mth, RotationConventionsAgree) {
    EXPECT_EQ(KR_Vector(0, 0, 1), KR_Vector(1, 0, 0).cross(KR_Vector(0, 1, 0)));
    KR_3DMatrix rz, fromQ, back;
    ASSERT_KR_OK(rz.setRotationZ(kPi / 2));
    KR_Vector out;
    ASSERT_KR_OK(rz.transformPoint(KR_Vector(1, 0, 0), out));
    EXPECT_TRUE(out.isNear(KR_Vector(0, 1, 0), 1e-15));
    KR_Quaternion q;
    ASSERT_KR_OK(q.fromAxisAngle(KR_Vector(0, 0, 2), kPi / 2));
    EXPECT_TRUE(q.rotate(KR_Vector(1, 0, 0)).isNear(KR_Vector(0, 1, 0), 1e-15));
    ASSERT_KR_OK(q.toMatrix(fromQ));
    EXPECT_TRUE(nearAll(numbers(fromQ).data(), numbers(rz).data(), 16, 1e-15));
    ASSERT_KR_OK(back.setRotationAxis(KR_Vector(0, 0, 5), kPi / 2));
    EXPECT_TRUE(nearAll(numbers(back).data(), numbers(rz).data(), 16, 1e-15));
    // Shepperd's method reads back every branch: the largest of w, x, y, z.
    const KR_Quaternion quats[] = {
            {0.9, 0.1, 0.2, 0.3}, {0.1, 0.9, 0.2, 0.3}, {0.1, 0.2, 0.9, 0.3}, {0.1, 0.2, 0.3, 0.9}};
    for (KR_Quaternion qq : quats) {
        qq.normalize();
        KR_Quaternion r;
        ASSERT_KR_OK(qq.toMatrix(fromQ));
        ASSERT_KR_OK(r.fromMatrix(fromQ));
        EXPECT_TRUE(nearAll(&r.w, &qq.w, 4, 1e-15));
    }
}

TEST(Mth, RecordEdgesAreDefined) {
    KR_SphereCoord s;
    KR_mthVectorToSphere(KR_Vector(0, 0, 0), s);
    EXPECT_TRUE(s.r == 0 && s.theta == 0 && s.phi == 0);
    KR_mthVectorToSphere(KR_Vector(0, 0, -2), s);
    EXPECT_TRUE(s.r == 2 && s.theta == kPi && s.phi == 0 && !signbit(s.phi));
    KR_mthVectorToSphere(KR_Vector(-1, -0.0, 0), s);  // atan2 answers -pi here
    EXPECT_EQ(kPi, s.phi);
    KR_Vector v;
    KR_mthSphereToVector(KR_SphereCoord(2, kPi / 2, kPi / 2), v);
    EXPECT_TRUE(v.isNear(KR_Vector(0, 2, 0), 1e-15));

    KR_Vector zero;
    EXPECT_KR_STATUS(KR_RET_FALSE, zero.normalize());
    KR_Vector huge(INFINITY, 0, 0);
    EXPECT_KR_STATUS(KR_RET_FALSE, huge.normalize());
    EXPECT_EQ(INFINITY, huge.x);
    KR_ParamLine line(KR_Vector(0, 0, 5), KR_Vector(1, 0, 0));
    double t = 7, t2 = 7;
    EXPECT_KR_STATUS(KR_RET_FALSE, line.intersectPlane(KR_Plane(KR_Vector(0, 0, 1), 0), t));
    EXPECT_KR_STATUS(KR_RET_FALSE, line.closestApproach(line, t, t2));
    EXPECT_EQ(7, t);
    KR_ParamLine other(KR_Vector(3, 1, 0), KR_Vector(0, 2, 0));
    ASSERT_KR_OK(line.closestApproach(other, t, t2));
    EXPECT_TRUE(line.pointAt(t) == KR_Vector(3, 0, 5) && other.pointAt(t2) == KR_Vector(3, 0, 0));
    EXPECT_EQ(5, line.distanceTo(KR_Vector(-4, 0, 0)));
    KR_Plane plane;
    EXPECT_KR_STATUS(KR_RET_FALSE,
                     plane.fromPoints(KR_Vector(0, 0, 0), KR_Vector(1, 1, 1), KR_Vector(2, 2, 2)));
    KR_Quaternion q(0, 0, 0, 0), inv;
    EXPECT_KR_STATUS(KR_RET_FALSE, q.inverse(inv));
    EXPECT_KR_STATUS(KR_RET_FALSE, q.fromAxisAngle(KR_Vector(), 1));
    // The pure operations leave the user error alone; operator[] clears it and reports.
    KR_setUserError(42);
    EXPECT_EQ(3.0, (KR_Vector(1, 2, 3) + KR_Vector()).z);
    EXPECT_EQ(42, KR_getUserError());
    krtest::ReportCapture capture;
    EXPECT_EQ(static_cast<void*>(&KR_NULL_PTR), static_cast<void*>(&v[3]));
    EXPECT_EQ(0, KR_getUserError());
    EXPECT_EQ(errorReport("KR_Vector: element access", "Index 3 not in [0,2]") +
                      statusLine("Error on function input arguments"),
              capture.located());
}

TEST(Mth, RectanglesAreHalfOpenAndSaturate) {
    KR_Rect r(0, 0, 10, 10), out(1, 1, 2, 2);
    EXPECT_TRUE(r.contains(9, 9) && !r.contains(10, 10));
    EXPECT_KR_STATUS(KR_RET_FALSE, r.intersect(KR_Rect(10, 0, 20, 10), out));
    EXPECT_TRUE(out.isEmpty() && out == KR_Rect());
    r.unite(KR_Rect(5, 5, 5, 30), out);  // an empty operand is ignored
    EXPECT_EQ(r, out);
    KR_Rect wide(INT_MIN, 0, INT_MAX, 1);
    EXPECT_EQ(INT_MAX, wide.width());
    wide.offset(5, 0);
    EXPECT_TRUE(wide.right == INT_MAX && wide.left == INT_MIN + 5);
    KR_Rect rev(5, 6, 1, 2);
    rev.normalize();
    EXPECT_EQ(KR_Rect(1, 2, 5, 6), rev);

    struct Case {
        const char* name;
        KR_RectF in;
        KR_Rect out;
    } const cases[] = {
            {"outwards", {0.5, -0.5, 2.25, 3.0}, {0, -1, 3, 3}},
            {"nan", {NAN, 1, NAN, 2}, {0, 1, 0, 2}},
            {"beyond int",
             {-1e300, -INFINITY, 1e300, INFINITY},
             {INT_MIN, INT_MIN, INT_MAX, INT_MAX}},
            {"at the int edges", {-2147483648.5, 0, 2147483646.5, 0}, {INT_MIN, 0, INT_MAX, 0}},
    };

    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.out, c.in.toRect());
    }
}

TEST(Mth, MatrixReportsUseTheCatalogue) {
    KR_Matrix m23(2, 3), sq(3, 3), one(1, 1), empty;
    KR_VectorArr two(2), three(3), none;
    krtest::ReportCapture capture;
    const std::string argStatus = statusLine("Error on function input arguments");

    struct Case {
        const char* name;
        std::function<KR_RET_STATUS()> op;
        std::string report;
    } const cases[] = {
            {"identity 2x3", [&] { return m23.setIdentity(); },
             errorReport("KR_Matrix set to identity matrix", "Matrix not N x N\nMatrix is 2 x 3")},
            {"invert 2x3", [&] { return m23.invert(); },
             errorReport("KR_Matrix inverse: ", "Matrix not N x N\nMatrix is 2 x 3")},
            {"singular", [&] { return sq.invert(); },
             errorReport("KR_Matrix inverse: ", "Matrix not invertible")},
            {"1x1 zero", [&] { return one.invert(); },
             errorReport("KR_Matrix inverse: ", "Matrix not invertible")},
            {"mul", [&] { return sq.mul(m23, m23); },
             errorReport("KR_Matrix multiplication: ", "incompatible matrices: 2 x 3 and 2 x 3")},
            {"transform", [&] { return two.transform(m23); },
             errorReport("KR_VectorArr matrix multiplication: ",
                         "incompatible matrices: 2 x 3 and 2 x 3")},
            {"row", [&] { return m23[2] == nullptr ? KR_getStatusCode() : KR_RET_TRUE; },
             errorReport("KR_Matrix row reference: ", "Index 2 not in [0,1]")},
            {"element", [&] { return (void)m23(0, 3), KR_getStatusCode(); },
             errorReport("KR_Matrix element access: ", "Index 3 not in [0,2]")},
            {"sum", [&] { return (two + three).numVecs() == 0 ? KR_getStatusCode() : KR_RET_TRUE; },
             errorReport("KR_VectorArr add",
                         "Array args have different number of vertices\n"
                         "Arg 1 has 2 vertices\nArg 2 has 3 vertices")},
            {"assign difference",
             [&] { return (two -= three).numVecs() == 2 ? KR_getStatusCode() : KR_RET_TRUE; },
             errorReport("KR_VectorArr assign difference",
                         "Array args have different number of vertices\n"
                         "Arg 1 has 2 vertices\nArg 2 has 3 vertices")},
            {"empty index", [&] { return (void)none[0], KR_getStatusCode(); },
             errorReport("KR_VectorArr array reference", "Index 0 not in [0,-1]")},
            {"divide",
             [&] { return (two /= 0.0).numVecs() == 2 ? KR_getStatusCode() : KR_RET_TRUE; },
             errorReport("KR_VectorArr divide vector by real", "Division by zero")},
    };

    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        capture.clear();
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, c.op());
        EXPECT_EQ(c.report + argStatus, capture.located());
    }
    EXPECT_EQ(0.0, sq(0, 0));  // the singular matrix was left as it was
    // The 0 x 0 matrix is square: identity, inverse and transpose are no-ops, det is 1.
    double det = 0;
    EXPECT_KR_OK(empty.setIdentity());
    EXPECT_KR_OK(empty.invert());
    EXPECT_KR_OK(empty.determinant(det));
    EXPECT_EQ(1.0, det);
    KR_3DMatrix fixed;
    EXPECT_KR_STATUS(KR_RET_ERR_NSUP, fixed.resize(2, 2));
}

TEST(Mth, NonFiniteAndNearSingularInverses) {
    struct Case {
        const char* name;
        double diag[4];
        double corner;  // m(3, 0), which makes the matrix non-affine when set
        KR_RET_STATUS status;
    } const cases[] = {
            {"nan", {1, NAN, 1, 1}, 0, KR_RET_ERR_ARG},
            {"inf", {1, 1, INFINITY, 1}, 0, KR_RET_ERR_ARG},
            {"inf general", {1, 1, INFINITY, 1}, 0.5, KR_RET_ERR_ARG},
            {"tiny pivot", {1, 1e-13, 1, 1}, 0, KR_RET_ERR_ARG},
            {"small but fine", {1, 1e-11, 1, 1}, 0.5, KR_RET_TRUE},
    };

    krtest::ReportCapture capture;

    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        KR_3DMatrix m;
        KR_Matrix g(4, 4);
        for (unsigned int i = 0; i < 4; ++i)
            m(i, i) = g(i, i) = c.diag[i];
        m(3, 0) = g(3, 0) = c.corner;
        std::vector<double> before = numbers(m);
        EXPECT_KR_STATUS(c.status, m.invert());
        EXPECT_KR_STATUS(c.status, g.invert());
        if (c.status != KR_RET_TRUE) {  // left unchanged, bit for bit (NaN included)
            std::vector<double> now = numbers(m);
            EXPECT_EQ(0, memcmp(before.data(), now.data(), 16 * sizeof(double)));
        }
    }
}

TEST(Mth, BlockBrokenThroughTheBaseIsRefusedOrRepaired) {
    KR_3DMatrix m;
    KR_Memory& base = m;
    krtest::ReportCapture capture;
    void* small = calloc(1, 8);
    ASSERT_KR_OK(base.memFree());
    ASSERT_KR_OK(base.memSet(small, 8));
    EXPECT_EQ(static_cast<void*>(&KR_NULL_PTR), static_cast<void*>(&m(0, 0)));
    EXPECT_EQ(errorReport("KR_Matrix block does not hold the matrix: ", "Matrix is 4 x 4") +
                      statusLine("Bad usage"),
              capture.located());
    KR_Vector out;
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, m.transformPoint(KR_Vector(), out));
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, m.invert());
    KR_3DMatrix copy(m);
    EXPECT_FALSE(copy.objIsEnabled());
    EXPECT_KR_OK(m.setIdentity());  // a fresh block: sound again
    EXPECT_EQ(1.0, m(3, 3));
    // A larger block keeps working; an assignment of another size through the base breaks it.
    ASSERT_KR_OK(base.memExpand(256));
    EXPECT_KR_OK(m.setTranslation(1, 2, 3));
    KR_Memory other(24);
    base = other;
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, m.setScaling(1, 1, 1));
    KR_Matrix general(2, 2);
    static_cast<KR_Memory&>(general).memFree();
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, general.transpose());
    EXPECT_KR_OK(general.resize(2, 2));
    EXPECT_KR_OK(general.setIdentity());
}

TEST(Mth, PrintersGoThroughTheConsoleHandler) {
    KR_OStream& out = *KR_coutPtr;
    KR_ConsoleHandler saved = out.getConsoleHandler();
    out.setConsoleHandler(collect);
    printed.clear();
    KR_VectorArr a(2);
    a[1] = KR_Vector(1, -2.5, 3);
    KR_Matrix m(2, 2);
    m(0, 1) = 0.25;
    out << KR_Vector(1, 2, 3) << "|" << KR_ParamLine(KR_Vector(), KR_Vector(0, 0, 1)) << "|" << a
        << m;
    out.setConsoleHandler(saved);
    EXPECT_EQ(
            "(1.000000, 2.000000, 3.000000)|(0.000000, 0.000000, 0.000000) + t (0.000000, "
            "0.000000, 1.000000)|(0.000000, 0.000000, 0.000000)\n(1.000000, -2.500000, "
            "3.000000)\n[0.000000, 0.250000]\n[0.000000, 0.000000]\n",
            printed);
}

TEST(Mth, VertexArraysKeepTheirTargetOnFailure) {
    KR_VectorArr a(3);
    for (unsigned int i = 0; i < 3; ++i)
        a[i] = KR_Vector(i, 2.0 * i, 1);
    KR_3DMatrix persp;
    persp(3, 2) = 2;  // w' = 2 z
    persp(3, 3) = 0;
    KR_VectorArr b(a);
    b[0] = KR_Vector(0, 0, 0);  // w' = 0 here
    EXPECT_KR_STATUS(KR_RET_FALSE, b.transform(persp));
    EXPECT_EQ(KR_Vector(0.5, 1, 0.5), b[1]);
    KR_Vector lo, hi, c;
    ASSERT_KR_OK(a.bounds(lo, hi));
    ASSERT_KR_OK(a.centroid(c));
    EXPECT_TRUE(lo == KR_Vector(0, 0, 1) && hi == KR_Vector(2, 4, 1) && c == KR_Vector(1, 2, 1));
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_VectorArr().centroid(c));
    ASSERT_KR_OK(a.resize(4));
    EXPECT_EQ(KR_Vector(), a[3]);
    EXPECT_EQ(KR_Vector(2, 4, 1), a[2]);
}

// Seeded operations on vertex arrays against a std::vector of coordinate triples: the counts,
// every vertex after each step, and the refusals (mismatched counts, division by zero) that must
// leave the target as it was.
TEST(Mth, VertexArraysFollowAVectorModel) {
    typedef std::vector<KR_Vector> Model;
    std::mt19937 engine(20261124);
    auto below = [&engine](size_t n) { return static_cast<size_t>(engine() % n); };
    auto same = [](const KR_VectorArr& a, const Model& m) {
        if (a.numVecs() != m.size()) return false;
        for (size_t i = 0; i < m.size(); ++i)
            if (!(a.data()[i] == m[i])) return false;
        return true;
    };
    auto randomVec = [&below] {
        return KR_Vector(below(2001) / 8.0 - 125, below(2001) / 8.0 - 125, below(2001) / 8.0 - 125);
    };
    KR_VectorArr a, b;
    Model ma, mb;
    krtest::ReportCapture capture;
    for (int step = 0; step < 3000; ++step) {
        SCOPED_TRACE(step);
        unsigned int n = static_cast<unsigned int>(below(6));
        switch (below(8)) {
            case 0:  // resize keeps the first vertices, new ones are zero
                ASSERT_KR_OK(a.resize(n));
                ma.resize(n);
                break;
            case 1:
                if (!ma.empty()) {
                    size_t i = below(ma.size());
                    a[static_cast<unsigned int>(i)] = ma[i] = randomVec();
                }
                break;
            case 2:
                b = a;
                mb = ma;
                break;
            case 3:
            case 4: {
                bool add = below(2) == 0;
                if (ma.size() == mb.size())
                    for (size_t i = 0; i < ma.size(); ++i)
                        ma[i] = add ? ma[i] + mb[i] : ma[i] - mb[i];
                if (add)
                    a += b;
                else
                    a -= b;
                break;
            }
            case 5: {
                KR_VectorArr sum = a + b;
                Model ms;
                if (ma.size() == mb.size())
                    for (size_t i = 0; i < ma.size(); ++i)
                        ms.push_back(ma[i] + mb[i]);
                ASSERT_TRUE(same(sum, ms));
                break;
            }
            case 6: {
                double s = static_cast<double>(below(5)) / 2.0;  // 0 is refused
                if (s != 0)
                    for (KR_Vector& v : ma)
                        v = v / s;
                a /= s;
                break;
            }
            default:
                ASSERT_KR_OK(b.resize(n));
                mb.resize(n);
                break;
        }
        ASSERT_TRUE(same(a, ma));
        ASSERT_TRUE(same(b, mb));
    }
}

TEST(Mth, AllocationFailuresLeaveTargetsUnchanged) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    krtest::forEachAllocationFailure(
            [] {
                KR_Matrix m(3, 3);
                for (unsigned int i = 0; i < 3; ++i)
                    m(i, (i + 1) % 3) = i + 1.0;
                return m;
            },
            [](KR_Matrix& m) { return m.invert(); },
            [](KR_Matrix& m, KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                EXPECT_EQ(2.0, m(1, 2));
            });
    krtest::forEachAllocationFailure([] { return KR_Matrix(2, 3); },
                                     [](KR_Matrix& m) { return m.transpose(); },
                                     [](KR_Matrix& m, KR_RET_STATUS status, unsigned long) {
                                         EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                                         EXPECT_EQ(2u, m.getRows());
                                     });
    krtest::forEachAllocationFailure([] { return KR_VectorArr(2); },
                                     [](KR_VectorArr& a) {
                                         KR_VectorArr big(5), copy(a);
                                         if (!big.objIsEnabled() || !copy.objIsEnabled())
                                             return KR_RET_ERR_MEM;
                                         a = big;
                                         return a.numVecs() == 5 ? KR_RET_TRUE : KR_RET_ERR_MEM;
                                     },
                                     [](KR_VectorArr& a, KR_RET_STATUS status, unsigned long) {
                                         EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                                         EXPECT_EQ(2u, a.numVecs());
                                     });
}
