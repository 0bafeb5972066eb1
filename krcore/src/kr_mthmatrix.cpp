// kr_mthmatrix.cpp — the general rows x cols matrix.
#include <limits.h>
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "kr_alloc.h"
#include "kr_mth.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_mth"

namespace {

constexpr double kSingularTolerance = 1e-12;
constexpr const char* kMulText = "KR_Matrix multiplication: ";
constexpr const char* kAccessText = "KR_Matrix element access: ";
constexpr const char* kBlockText = "KR_Matrix block does not hold the matrix: ";

// rows x cols doubles fit in a 32-bit byte count.
bool shapeFits(unsigned int rows, unsigned int cols) {
    return static_cast<uint64_t>(rows) * cols * sizeof(double) <= UINT_MAX;
}

// "Matrix not N x N" / "Matrix is %d x %d", joined at the failure site.
KR_RET_STATUS reportNotSquare(unsigned int line,
                              unsigned int textId,
                              unsigned int rows,
                              unsigned int cols) {
    char format[96];
    snprintf(format, sizeof format, "%s\n%s", KR_msg(3, 2), KR_msg(3, 3));
    KR_reportErrorMsg(KRI_UNIT, line, KR_msg(3, textId), format, static_cast<int>(rows),
                      static_cast<int>(cols));
    return krInternal::failAt(KR_RET_ERR_ARG, KRI_UNIT, line);
}

KR_RET_STATUS reportIncompatible(unsigned int line,
                                 const char* text,
                                 unsigned int r1,
                                 unsigned int c1,
                                 unsigned int r2,
                                 unsigned int c2) {
    KR_reportErrorMsg(KRI_UNIT, line, text, KR_msg(3, 5), static_cast<int>(r1),
                      static_cast<int>(c1), static_cast<int>(r2), static_cast<int>(c2));
    return krInternal::failAt(KR_RET_ERR_ARG, KRI_UNIT, line);
}

bool allFinite(const double* e, size_t n) {
    for (size_t i = 0; i < n; ++i)
        if (!isfinite(e[i])) return false;
    return true;
}

// dst[j] -= f src[j]; four at a time for independent additions.
inline void subtractScaledRow(double* __restrict dst,
                              const double* __restrict src,
                              double f,
                              unsigned int n) {
    unsigned int j = 0;
    for (; j + 4 <= n; j += 4) {
        dst[j] -= f * src[j];
        dst[j + 1] -= f * src[j + 1];
        dst[j + 2] -= f * src[j + 2];
        dst[j + 3] -= f * src[j + 3];
    }
    for (; j < n; ++j)
        dst[j] -= f * src[j];
}

// c (rows x cols) := a (rows x inner) b (inner x cols), loop order i-k-j; c does not overlap
// a or b.
void multiply(double* __restrict c,
              const double* __restrict a,
              const double* __restrict b,
              unsigned int rows,
              unsigned int inner,
              unsigned int cols) {
    for (unsigned int i = 0; i < rows; ++i) {
        double* ci = c + static_cast<size_t>(i) * cols;
        for (unsigned int j = 0; j < cols; ++j)
            ci[j] = 0.0;
        const double* ai = a + static_cast<size_t>(i) * inner;
        unsigned int k = 0;
        for (; k + 2 <= inner; k += 2) {
            double a0 = ai[k];
            double a1 = ai[k + 1];
            const double* b0 = b + static_cast<size_t>(k) * cols;
            const double* b1 = b0 + cols;
            for (unsigned int j = 0; j < cols; ++j)
                ci[j] += a0 * b0[j] + a1 * b1[j];
        }
        for (; k < inner; ++k) {
            double a0 = ai[k];
            const double* b0 = b + static_cast<size_t>(k) * cols;
            for (unsigned int j = 0; j < cols; ++j)
                ci[j] += a0 * b0[j];
        }
    }
}

}  // namespace

// --- KR_Matrix ---

KR_Matrix::KR_Matrix(unsigned int rows, unsigned int cols) : KR_Memory(0), fixedShape_(0) {
    KR_setUserError(0);
    initDataMembers(rows, cols);
}

KR_Matrix::KR_Matrix(const KR_Matrix& other) : KR_Memory(0), fixedShape_(0) {
    KR_setUserError(0);
    initialised_ = 0;
    rows_ = 0;
    cols_ = 0;
    if (&other == this) return;
    KR_RET_STATUS status = KR_RET_TRUE;
    const double* src = other.elems(status);
    if (src == nullptr) return;
    if (KRI_FAILED(initDataMembers(other.rows_, other.cols_))) return;
    size_t n = static_cast<size_t>(rows_) * cols_;
    if (n > 0) memcpy(elemsQuiet(), src, n * sizeof(double));
}

KR_Matrix::~KR_Matrix() {
    KR_setUserError(0);
    cleanupDataMembers();
}

KR_Matrix& KR_Matrix::operator=(const KR_Matrix& other) {
    KR_setUserError(0);
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    if (&other == this) return *this;
    KR_RET_STATUS status = KR_RET_TRUE;
    const double* src = other.elems(status);
    if (src == nullptr) return *this;
    if (fixedShape_ && (other.rows_ != 4 || other.cols_ != 4)) {
        reportIncompatible(__LINE__, "KR_Matrix assignment: ", rows_, cols_, other.rows_,
                           other.cols_);
        return *this;
    }
    size_t n = static_cast<size_t>(other.rows_) * other.cols_;
    double* dst = elemsQuiet();
    if (dst != nullptr && n == static_cast<size_t>(rows_) * cols_) {
        if (n > 0) memcpy(dst, src, n * sizeof(double));
        rows_ = other.rows_;
        cols_ = other.cols_;
        return *this;
    }
    double* block = nullptr;
    if (n > 0) {
        block = static_cast<double*>(krInternal::allocBlock(n * sizeof(double)));
        if (block == nullptr) {
            KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Matrix assignment: ", KR_msg(0, 1));
            return *this;
        }
        memcpy(block, src, n * sizeof(double));
    }
    adopt(block, other.rows_, other.cols_);
    return *this;
}

KR_RET_STATUS KR_Matrix::resize(unsigned int rows, unsigned int cols) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (fixedShape_) return KRI_FAIL(KR_RET_ERR_NSUP);
    if (!shapeFits(rows, cols))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Matrix resize: ", KR_msg(3, 3),
                            static_cast<int>(rows), static_cast<int>(cols));
    size_t n = static_cast<size_t>(rows) * cols;
    double* block = nullptr;
    if (n > 0) {
        block = static_cast<double*>(krInternal::allocZeroed(n, sizeof(double)));
        if (block == nullptr)
            return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Matrix resize: ", KR_msg(0, 1));
    }
    adopt(block, rows, cols);
    return KR_RET_TRUE;
}

double& KR_Matrix::operator()(unsigned int r, unsigned int c) {
    KR_setUserError(0);
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = elems(status);
    if (e == nullptr) return krInternal::nullRef<double>();
    if (r >= rows_) {
        KRI_FAIL_MSG(KR_RET_ERR_ARG, kAccessText, KR_msg(0, 3), static_cast<int>(r), 0,
                     static_cast<int>(rows_) - 1);
        return krInternal::nullRef<double>();
    }
    if (c >= cols_) {
        KRI_FAIL_MSG(KR_RET_ERR_ARG, kAccessText, KR_msg(0, 3), static_cast<int>(c), 0,
                     static_cast<int>(cols_) - 1);
        return krInternal::nullRef<double>();
    }
    return e[static_cast<size_t>(r) * cols_ + c];
}

double KR_Matrix::operator()(unsigned int r, unsigned int c) const {
    return const_cast<KR_Matrix&>(*this)(r, c);
}

double* KR_Matrix::operator[](unsigned int r) {
    KR_setUserError(0);
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = elems(status);
    if (e == nullptr) return nullptr;
    if (r >= rows_) {
        KRI_FAIL_MSG(KR_RET_ERR_ARG, KR_msg(3, 6), KR_msg(0, 3), static_cast<int>(r), 0,
                     static_cast<int>(rows_) - 1);
        return nullptr;
    }
    return e + static_cast<size_t>(r) * cols_;
}

KR_RET_STATUS KR_Matrix::setIdentity() {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (rows_ != cols_) return reportNotSquare(__LINE__, 1, rows_, cols_);
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = elems(status);
    if (e == nullptr) return status;
    for (unsigned int r = 0; r < rows_; ++r)
        for (unsigned int c = 0; c < cols_; ++c)
            e[static_cast<size_t>(r) * cols_ + c] = r == c ? 1.0 : 0.0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Matrix::transpose() {
    KR_setUserError(0);
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = elems(status);
    if (e == nullptr) return status;
    size_t n = static_cast<size_t>(rows_) * cols_;
    if (rows_ == cols_) {
        for (unsigned int r = 0; r < rows_; ++r) {
            for (unsigned int c = r + 1; c < cols_; ++c) {
                double t = e[static_cast<size_t>(r) * cols_ + c];
                e[static_cast<size_t>(r) * cols_ + c] = e[static_cast<size_t>(c) * cols_ + r];
                e[static_cast<size_t>(c) * cols_ + r] = t;
            }
        }
        return KR_RET_TRUE;
    }
    if (n > 0) {
        double* copy = static_cast<double*>(krInternal::allocBlock(n * sizeof(double)));
        if (copy == nullptr) return KRI_FAIL_MSG(KR_RET_ERR_MEM, KR_msg(3, 7), KR_msg(0, 1));
        memcpy(copy, e, n * sizeof(double));
        for (unsigned int r = 0; r < rows_; ++r)
            for (unsigned int c = 0; c < cols_; ++c)
                e[static_cast<size_t>(c) * rows_ + r] = copy[static_cast<size_t>(r) * cols_ + c];
        krInternal::freeBlock(copy);
    }
    unsigned int t = rows_;
    rows_ = cols_;
    cols_ = t;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Matrix::determinant(double& det) const {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (rows_ != cols_) return reportNotSquare(__LINE__, 8, rows_, cols_);
    KR_RET_STATUS status = KR_RET_TRUE;
    const double* e = elems(status);
    if (e == nullptr) return status;
    unsigned int n = rows_;
    size_t count = static_cast<size_t>(n) * n;
    if (!allFinite(e, count)) {
        det = NAN;
        return KR_RET_TRUE;
    }
    double local[16];
    double* a = local;
    if (count > 16) {
        a = static_cast<double*>(krInternal::allocBlock(count * sizeof(double)));
        if (a == nullptr) return KRI_FAIL_MSG(KR_RET_ERR_MEM, KR_msg(3, 8), KR_msg(0, 1));
    }
    if (count > 0) memcpy(a, e, count * sizeof(double));
    double result = 1.0;
    for (unsigned int k = 0; k < n && result != 0.0; ++k) {
        unsigned int p = k;
        double best = fabs(a[static_cast<size_t>(k) * n + k]);
        for (unsigned int i = k + 1; i < n; ++i) {
            double v = fabs(a[static_cast<size_t>(i) * n + k]);
            if (v > best) {
                best = v;
                p = i;
            }
        }
        if (best == 0.0) {
            result = 0.0;
            break;
        }
        double* ak = a + static_cast<size_t>(k) * n;
        if (p != k) {
            double* ap = a + static_cast<size_t>(p) * n;
            for (unsigned int j = 0; j < n; ++j) {
                double t = ak[j];
                ak[j] = ap[j];
                ap[j] = t;
            }
            result = -result;
        }
        double pivot = ak[k];
        result *= pivot;
        for (unsigned int i = k + 1; i < n; ++i) {
            double* ai = a + static_cast<size_t>(i) * n;
            double f = ai[k] / pivot;
            if (f != 0.0) subtractScaledRow(ai + k + 1, ak + k + 1, f, n - k - 1);
        }
    }
    if (a != local) krInternal::freeBlock(a);
    det = result;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Matrix::invert() {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (rows_ != cols_) return reportNotSquare(__LINE__, 9, rows_, cols_);
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = elems(status);
    if (e == nullptr) return status;
    unsigned int n = rows_;
    if (n == 0) return KR_RET_TRUE;
    size_t count = static_cast<size_t>(n) * n;
    double maxAbs = 0.0;
    for (size_t i = 0; i < count; ++i) {
        double v = fabs(e[i]);
        if (!(v <= 1.7976931348623157e308)) maxAbs = INFINITY;  // NaN or infinite
        if (v > maxAbs) maxAbs = v;
    }
    if (maxAbs == 0.0 || !isfinite(maxAbs))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, KR_msg(3, 9), KR_msg(3, 10));
    void* work = krInternal::allocBlock(count * sizeof(double) + n * sizeof(unsigned int));
    if (work == nullptr) return KRI_FAIL_MSG(KR_RET_ERR_MEM, KR_msg(3, 9), KR_msg(0, 1));
    double* a = static_cast<double*>(work);
    unsigned int* pivots = reinterpret_cast<unsigned int*>(a + count);
    memcpy(a, e, count * sizeof(double));
    double tolerance = kSingularTolerance * maxAbs;
    for (unsigned int k = 0; k < n; ++k) {
        unsigned int p = k;
        double best = fabs(a[static_cast<size_t>(k) * n + k]);
        for (unsigned int i = k + 1; i < n; ++i) {
            double v = fabs(a[static_cast<size_t>(i) * n + k]);
            if (v > best) {
                best = v;
                p = i;
            }
        }
        if (!(best > tolerance)) {
            krInternal::freeBlock(work);
            return KRI_FAIL_MSG(KR_RET_ERR_ARG, KR_msg(3, 9), KR_msg(3, 10));
        }
        pivots[k] = p;
        double* ak = a + static_cast<size_t>(k) * n;
        if (p != k) {
            double* ap = a + static_cast<size_t>(p) * n;
            for (unsigned int j = 0; j < n; ++j) {
                double t = ak[j];
                ak[j] = ap[j];
                ap[j] = t;
            }
        }
        double inv = 1.0 / ak[k];
        ak[k] = 1.0;
        for (unsigned int j = 0; j < n; ++j)
            ak[j] *= inv;
        for (unsigned int i = 0; i < n; ++i) {
            if (i == k) continue;
            double* ai = a + static_cast<size_t>(i) * n;
            double f = ai[k];
            if (f == 0.0) continue;
            ai[k] = 0.0;
            subtractScaledRow(ai, ak, f, n);
        }
    }
    // Row swaps of the elimination are column swaps of the inverse, undone in reverse order.
    for (unsigned int k = n; k-- > 0;) {
        unsigned int p = pivots[k];
        if (p == k) continue;
        for (unsigned int i = 0; i < n; ++i) {
            double* ai = a + static_cast<size_t>(i) * n;
            double t = ai[k];
            ai[k] = ai[p];
            ai[p] = t;
        }
    }
    memcpy(e, a, count * sizeof(double));
    krInternal::freeBlock(work);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Matrix::mul(const KR_Matrix& a, const KR_Matrix& b) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    KR_RET_STATUS status = KR_RET_TRUE;
    const double* x = a.elems(status);
    if (x == nullptr) return status;
    const double* y = b.elems(status);
    if (y == nullptr) return status;
    double* e = elems(status);
    if (e == nullptr) return status;
    unsigned int rows = a.rows_;
    unsigned int cols = b.cols_;
    if (a.cols_ != b.rows_ || !shapeFits(rows, cols) || (fixedShape_ && (rows != 4 || cols != 4)))
        return reportIncompatible(__LINE__, kMulText, a.rows_, a.cols_, b.rows_, b.cols_);
    size_t n = static_cast<size_t>(rows) * cols;
    if (this != &a && this != &b && rows == rows_ && cols == cols_) {
        multiply(e, x, y, rows, a.cols_, cols);
        return KR_RET_TRUE;
    }
    double* block = nullptr;
    if (n > 0) {
        block = static_cast<double*>(krInternal::allocBlock(n * sizeof(double)));
        if (block == nullptr) return KRI_FAIL_MSG(KR_RET_ERR_MEM, kMulText, KR_msg(0, 1));
        multiply(block, x, y, rows, a.cols_, cols);
    }
    adopt(block, rows, cols);
    return KR_RET_TRUE;
}

KR_Matrix KR_Matrix::operator*(const KR_Matrix& b) const {
    KR_Matrix product;
    product.mul(*this, b);
    return product;
}

KR_RET_STATUS KR_Matrix::combine(const KR_Matrix& b, double sign, KR_Matrix& out) const {
    KR_RET_STATUS status = KR_RET_TRUE;
    const double* x = elems(status);
    if (x == nullptr) return status;
    const double* y = b.elems(status);
    if (y == nullptr) return status;
    if (rows_ != b.rows_ || cols_ != b.cols_)
        return reportIncompatible(
                __LINE__, sign > 0 ? "KR_Matrix addition: " : "KR_Matrix subtraction: ", rows_,
                cols_, b.rows_, b.cols_);
    status = out.resize(rows_, cols_);
    if (KRI_FAILED(status)) return status;
    double* r = out.elemsQuiet();
    size_t n = static_cast<size_t>(rows_) * cols_;
    for (size_t i = 0; i < n; ++i)
        r[i] = x[i] + sign * y[i];
    return KR_RET_TRUE;
}

KR_Matrix KR_Matrix::operator+(const KR_Matrix& b) const {
    KR_setUserError(0);
    KR_Matrix sum;
    combine(b, 1.0, sum);
    return sum;
}

KR_Matrix KR_Matrix::operator-(const KR_Matrix& b) const {
    KR_setUserError(0);
    KR_Matrix diff;
    combine(b, -1.0, diff);
    return diff;
}

KR_Matrix& KR_Matrix::operator*=(double s) {
    KR_setUserError(0);
    KR_RET_STATUS status = KR_RET_TRUE;
    double* e = elems(status);
    if (e == nullptr) return *this;
    size_t n = static_cast<size_t>(rows_) * cols_;
    for (size_t i = 0; i < n; ++i)
        e[i] *= s;
    return *this;
}

bool KR_Matrix::operator==(const KR_Matrix& other) const {
    KR_setUserError(0);
    KR_RET_STATUS status = KR_RET_TRUE;
    const double* x = elems(status);
    if (x == nullptr) return false;
    const double* y = other.elems(status);
    if (y == nullptr) return false;
    if (rows_ != other.rows_ || cols_ != other.cols_) return false;
    size_t n = static_cast<size_t>(rows_) * cols_;
    for (size_t i = 0; i < n; ++i)
        if (!(x[i] == y[i])) return false;
    return true;
}

double* KR_Matrix::elems(KR_RET_STATUS& status) const {
    if (!initialised_) {
        status = KRI_FAIL(KR_RET_ERR_POBJ);
        return nullptr;
    }
    double* e = elemsQuiet();
    if (e == nullptr)
        status = KRI_FAIL_MSG(KR_RET_ERR_CALL, kBlockText, KR_msg(3, 3), static_cast<int>(rows_),
                              static_cast<int>(cols_));
    return e;
}

void KR_Matrix::adopt(double* block, unsigned int rows, unsigned int cols) {
    void* old = memPtr();
    memSet(block, static_cast<unsigned int>(static_cast<size_t>(rows) * cols * sizeof(double)));
    krInternal::freeBlock(old);
    rows_ = rows;
    cols_ = cols;
}

KR_RET_STATUS KR_Matrix::initDataMembers(unsigned int rows, unsigned int cols) {
    initialised_ = 0;
    rows_ = 0;
    cols_ = 0;
    if (!shapeFits(rows, cols))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Matrix constructor: ", KR_msg(3, 3),
                            static_cast<int>(rows), static_cast<int>(cols));
    KR_RET_STATUS status = memGet(rows * cols * static_cast<unsigned int>(sizeof(double)));
    if (KRI_FAILED(status)) return status;
    rows_ = rows;
    cols_ = cols;
    initialised_ = 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Matrix::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    initialised_ = 0;
    rows_ = 0;
    cols_ = 0;
    return KR_RET_TRUE;
}

KR_OStream& operator<<(KR_OStream& stream, const KR_Matrix& m) {
    const KR_Matrix& cm = m;
    for (unsigned int r = 0; r < cm.getRows(); ++r) {
        stream << "[";
        for (unsigned int c = 0; c < cm.getCols(); ++c) {
            if (c > 0) stream << ", ";
            stream << cm(r, c);
        }
        stream << "]\n";
    }
    return stream;
}
