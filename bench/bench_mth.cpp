// bench_mth.cpp — the math and camera hot paths against glm (dvec3, dquat, dmat4) and Eigen
// (MatrixXd, PartialPivLU) on the same seeded data: vector and quaternion arithmetic, the 4 x 4
// product and inverse, a 10^6-vertex transform, general products and inverses, sphere culling
// and projection to the screen.
#include <math.h>

#include <algorithm>
#include <random>
#include <vector>

#include "benchmark/benchmark.h"

#include "krcore.h"

#include <Eigen/Dense>
#include <glm/ext/matrix_clip_space.hpp>
#include <glm/ext/matrix_projection.hpp>
#include <glm/ext/matrix_transform.hpp>
#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>

namespace {

constexpr size_t kBatch = 1024;
constexpr size_t kVertices = 1000000;

std::mt19937_64& rng() {
    static std::mt19937_64 r(7);
    return r;
}

double uniform(double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(rng());
}

// --- adapters: the same operations on krcore's and glm's types ---

struct Kr {
    using Vec = KR_Vector;
    using Quat = KR_Quaternion;

    static Vec vec(double x, double y, double z) { return KR_Vector(x, y, z); }

    static Quat quat(double w, double x, double y, double z) { return KR_Quaternion(w, x, y, z); }

    static double dot(const Vec& a, const Vec& b) { return a.dot(b); }

    static Vec cross(const Vec& a, const Vec& b) { return a.cross(b); }

    static void normalize(Vec& v) { v.normalize(); }

    static Quat mul(const Quat& a, const Quat& b) { return a * b; }

    static Quat slerp(const Quat& a, const Quat& b, double t) {
        KR_Quaternion out;
        KR_mthSlerp(a, b, t, out);
        return out;
    }
};

struct Glm {
    using Vec = glm::dvec3;
    using Quat = glm::dquat;

    static Vec vec(double x, double y, double z) { return glm::dvec3(x, y, z); }

    static Quat quat(double w, double x, double y, double z) { return glm::dquat(w, x, y, z); }

    static double dot(const Vec& a, const Vec& b) { return glm::dot(a, b); }

    static Vec cross(const Vec& a, const Vec& b) { return glm::cross(a, b); }

    static void normalize(Vec& v) { v = glm::normalize(v); }

    static Quat mul(const Quat& a, const Quat& b) { return a * b; }

    static Quat slerp(const Quat& a, const Quat& b, double t) { return glm::slerp(a, b, t); }
};

template <class A>
std::vector<typename A::Vec> vectors() {
    rng().seed(11);
    std::vector<typename A::Vec> v;
    for (size_t i = 0; i < kBatch; ++i)
        v.push_back(A::vec(uniform(-9, 9), uniform(-9, 9), uniform(-9, 9)));
    return v;
}

template <class A>
std::vector<typename A::Quat> quaternions() {
    rng().seed(13);
    std::vector<typename A::Quat> q;
    for (size_t i = 0; i < kBatch; ++i) {
        double w = uniform(-1, 1), x = uniform(-1, 1), y = uniform(-1, 1), z = uniform(-1, 1);
        double n = sqrt(w * w + x * x + y * y + z * z);
        q.push_back(A::quat(w / n, x / n, y / n, z / n));
    }
    return q;
}

template <class A>
void BM_Dot(benchmark::State& state) {
    auto a = vectors<A>(), b = a;
    std::reverse(b.begin(), b.end());
    for (auto _ : state) {
        double sum = 0;
        for (size_t i = 0; i < kBatch; ++i)
            sum += A::dot(a[i], b[i]);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

template <class A>
void BM_Cross(benchmark::State& state) {
    auto a = vectors<A>(), b = a, out = a;
    std::reverse(b.begin(), b.end());
    for (auto _ : state) {
        for (size_t i = 0; i < kBatch; ++i)
            out[i] = A::cross(a[i], b[i]);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

template <class A>
void BM_Normalize(benchmark::State& state) {
    auto a = vectors<A>(), out = a;
    for (auto _ : state) {
        for (size_t i = 0; i < kBatch; ++i) {
            out[i] = a[i];
            A::normalize(out[i]);
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

template <class A>
void BM_QuatMul(benchmark::State& state) {
    auto a = quaternions<A>(), b = a, out = a;
    std::reverse(b.begin(), b.end());
    for (auto _ : state) {
        for (size_t i = 0; i < kBatch; ++i)
            out[i] = A::mul(a[i], b[i]);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

template <class A>
void BM_Slerp(benchmark::State& state) {
    auto a = quaternions<A>(), b = a, out = a;
    std::reverse(b.begin(), b.end());
    for (auto _ : state) {
        for (size_t i = 0; i < kBatch; ++i)
            out[i] = A::slerp(a[i], b[i], 0.3);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

// --- 4 x 4 matrices ---

void fill(double m[16], bool affine) {
    rng().seed(17);
    for (int i = 0; i < 16; ++i)
        m[i] = uniform(-1, 1) + (i % 5 == 0 ? 3.0 : 0.0);
    if (affine) {
        m[12] = m[13] = m[14] = 0;
        m[15] = 1;
    }
}

struct KrMat4 {
    KR_3DMatrix m, a, b;

    explicit KrMat4(bool affine) {
        double v[16];
        fill(v, affine);
        for (int i = 0; i < 16; ++i)
            m(i / 4, i % 4) = a(i / 4, i % 4) = b(i / 4, 3 - i % 4) = v[i];
    }

    void mul() { m.mul(a, b); }

    void invert() { m.invert(); }

    void* out() { return &m; }
};

struct GlmMat4 {
    glm::dmat4 m, a, b;

    explicit GlmMat4(bool affine) {
        double v[16];
        fill(v, affine);
        for (int i = 0; i < 16; ++i)
            m[i % 4][i / 4] = a[i % 4][i / 4] = b[3 - i % 4][i / 4] = v[i];
    }

    void mul() { m = a * b; }

    void invert() { m = glm::inverse(m); }

    void* out() { return &m; }
};

template <class M>
void BM_Mat4Mul(benchmark::State& state) {
    M m(false);
    for (auto _ : state) {
        benchmark::DoNotOptimize(&m.a);
        m.mul();
        benchmark::DoNotOptimize(m.out());
        benchmark::ClobberMemory();
    }
}

// A batch of independent matrices, each inverted once per iteration (so they alternate between
// the matrix and its inverse): the inverses overlap as they would in a scene, instead of
// waiting on each other.
template <class M>
void BM_Mat4Invert(benchmark::State& state) {
    std::vector<M> batch;
    for (int i = 0; i < 64; ++i)
        batch.emplace_back(state.range(0) != 0);
    for (auto _ : state) {
        for (M& m : batch)
            m.invert();
        benchmark::DoNotOptimize(batch.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * batch.size());
}

// --- 10^6 vertices through a rotation and translation (w' = 1) ---

void BM_TransformKr(benchmark::State& state) {
    KR_VectorArr arr(kVertices);
    KR_Vector* v = arr.data();
    rng().seed(19);
    for (size_t i = 0; i < kVertices; ++i)
        v[i] = KR_Vector(uniform(-9, 9), uniform(-9, 9), uniform(-9, 9));
    KR_3DMatrix m;
    m.setRotationAxis(KR_Vector(1, 2, 3), 0.001);
    m(0, 3) = 1e-6;
    for (auto _ : state) {
        arr.transform(m);
        benchmark::DoNotOptimize(v);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kVertices);
}

void BM_TransformGlm(benchmark::State& state) {
    std::vector<glm::dvec3> v(kVertices);
    rng().seed(19);
    for (size_t i = 0; i < kVertices; ++i)
        v[i] = glm::dvec3(uniform(-9, 9), uniform(-9, 9), uniform(-9, 9));
    glm::dmat4 m = glm::rotate(glm::dmat4(1.0), 0.001, glm::dvec3(1, 2, 3));
    m[3][0] = 1e-6;
    for (auto _ : state) {
        for (glm::dvec3& p : v) {
            glm::dvec4 r = m * glm::dvec4(p, 1.0);
            p = glm::dvec3(r) / r.w;
        }
        benchmark::DoNotOptimize(v.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kVertices);
}

// --- general matrices against Eigen ---

void BM_MatMulKr(benchmark::State& state) {
    unsigned int n = static_cast<unsigned int>(state.range(0));
    KR_Matrix a(n, n), b(n, n), c(n, n);
    rng().seed(23);
    for (unsigned int r = 0; r < n; ++r)
        for (unsigned int k = 0; k < n; ++k)
            a(r, k) = uniform(-1, 1), b(r, k) = uniform(-1, 1);
    for (auto _ : state) {
        c.mul(a, b);
        benchmark::DoNotOptimize(&c);
        benchmark::ClobberMemory();
    }
}

void BM_MatMulEigen(benchmark::State& state) {
    int n = static_cast<int>(state.range(0));
    Eigen::MatrixXd a(n, n), b(n, n), c(n, n);
    rng().seed(23);
    for (int r = 0; r < n; ++r)
        for (int k = 0; k < n; ++k)
            a(r, k) = uniform(-1, 1), b(r, k) = uniform(-1, 1);
    for (auto _ : state) {
        c.noalias() = a * b;
        benchmark::DoNotOptimize(c.data());
        benchmark::ClobberMemory();
    }
}

void BM_MatInvertKr(benchmark::State& state) {
    unsigned int n = static_cast<unsigned int>(state.range(0));
    KR_Matrix src(n, n), m(n, n);
    rng().seed(29);
    for (unsigned int r = 0; r < n; ++r)
        for (unsigned int k = 0; k < n; ++k)
            src(r, k) = uniform(-1, 1) + (r == k ? n * 0.5 : 0.0);
    for (auto _ : state) {
        m = src;
        m.invert();
        benchmark::DoNotOptimize(&m);
        benchmark::ClobberMemory();
    }
}

void BM_MatInvertEigen(benchmark::State& state) {
    int n = static_cast<int>(state.range(0));
    Eigen::MatrixXd src(n, n), m(n, n);
    rng().seed(29);
    for (int r = 0; r < n; ++r)
        for (int k = 0; k < n; ++k)
            src(r, k) = uniform(-1, 1) + (r == k ? n * 0.5 : 0.0);
    Eigen::PartialPivLU<Eigen::MatrixXd> lu(n);
    for (auto _ : state) {
        lu.compute(src);
        m = lu.inverse();
        benchmark::DoNotOptimize(m.data());
        benchmark::ClobberMemory();
    }
}

// --- the camera: 10^6 spheres and screen projection ---

struct Spheres {
    std::vector<KR_Vector> centres;
    std::vector<double> radii;

    Spheres() {
        rng().seed(31);
        for (size_t i = 0; i < kVertices; ++i) {
            centres.push_back(KR_Vector(uniform(-60, 60), uniform(-60, 60), uniform(-120, 20)));
            radii.push_back(uniform(0.1, 5));
        }
    }
};

void setUpCamera(KR_Camera& cam) {
    cam.setPosition(KR_Vector(1, 2, 3));
    cam.lookAt(KR_Vector(0, 0, -20), KR_Vector(0, 1, 0));
    cam.setPerspective(1.0, 16.0 / 9.0, 0.1, 100);
    cam.setViewport(KR_Rect(0, 0, 1920, 1080), 0);
}

void BM_ClassifySphereKr(benchmark::State& state) {
    static Spheres s;
    KR_Camera cam;
    setUpCamera(cam);
    for (auto _ : state) {
        unsigned int inside = 0;
        for (size_t i = 0; i < kVertices; ++i)
            inside += cam.classifySphere(s.centres[i], s.radii[i]);
        benchmark::DoNotOptimize(inside);
    }
    state.SetItemsProcessed(state.iterations() * kVertices);
}

void BM_ClassifySphereGlm(benchmark::State& state) {
    static Spheres s;
    KR_Camera cam;
    setUpCamera(cam);
    KR_Plane planes[6];
    cam.getFrustumPlanes(planes);
    glm::dvec4 p[6];
    for (int i = 0; i < 6; ++i)
        p[i] = glm::dvec4(planes[i].normal.x, planes[i].normal.y, planes[i].normal.z, planes[i].d);
    std::vector<glm::dvec3> centres;
    for (const KR_Vector& c : s.centres)
        centres.push_back(glm::dvec3(c.x, c.y, c.z));
    for (auto _ : state) {
        unsigned int inside = 0;
        for (size_t i = 0; i < kVertices; ++i) {
            double r = s.radii[i];
            int cls = 2;
            for (int k = 0; k < 6; ++k) {
                double d = glm::dot(glm::dvec3(p[k]), centres[i]) + p[k].w;
                if (d < -r) {
                    cls = 0;
                    break;
                }
                if (d < r) cls = 1;
            }
            inside += cls;
        }
        benchmark::DoNotOptimize(inside);
    }
    state.SetItemsProcessed(state.iterations() * kVertices);
}

void BM_WorldToScreenKr(benchmark::State& state) {
    KR_Camera cam;
    setUpCamera(cam);
    std::vector<KR_Vector> pts = vectors<Kr>();
    for (auto _ : state) {
        double sum = 0;
        for (const KR_Vector& p : pts) {
            double sx, sy, depth;
            cam.worldToScreen(p, sx, sy, depth);
            sum += sx + sy + depth;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

void BM_WorldToScreenGlm(benchmark::State& state) {
    glm::dmat4 view =
            glm::lookAtRH(glm::dvec3(1, 2, 3), glm::dvec3(0, 0, -20), glm::dvec3(0, 1, 0));
    glm::dmat4 proj = glm::perspectiveRH_ZO(1.0, 16.0 / 9.0, 0.1, 100.0);
    glm::dvec4 viewport(0, 0, 1920, 1080);
    std::vector<glm::dvec3> pts = vectors<Glm>();
    for (auto _ : state) {
        double sum = 0;
        for (const glm::dvec3& p : pts) {
            glm::dvec3 w = glm::projectZO(p, view, proj, viewport);
            sum += w.x + (1080 - w.y) + w.z;  // screens grow downwards
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

// The library reports through the reporter and the stream that KR_init makes.
struct Library {
    Library() { KR_init(); }

    ~Library() { KR_close(); }
} library;

}  // namespace

BENCHMARK_TEMPLATE(BM_Dot, Kr);
BENCHMARK_TEMPLATE(BM_Dot, Glm);
BENCHMARK_TEMPLATE(BM_Cross, Kr);
BENCHMARK_TEMPLATE(BM_Cross, Glm);
BENCHMARK_TEMPLATE(BM_Normalize, Kr);
BENCHMARK_TEMPLATE(BM_Normalize, Glm);
BENCHMARK_TEMPLATE(BM_QuatMul, Kr);
BENCHMARK_TEMPLATE(BM_QuatMul, Glm);
BENCHMARK_TEMPLATE(BM_Slerp, Kr);
BENCHMARK_TEMPLATE(BM_Slerp, Glm);
BENCHMARK_TEMPLATE(BM_Mat4Mul, KrMat4);
BENCHMARK_TEMPLATE(BM_Mat4Mul, GlmMat4);
BENCHMARK_TEMPLATE(BM_Mat4Invert, KrMat4)->Arg(0)->Arg(1);
BENCHMARK_TEMPLATE(BM_Mat4Invert, GlmMat4)->Arg(0)->Arg(1);
BENCHMARK(BM_TransformKr);
BENCHMARK(BM_TransformGlm);
BENCHMARK(BM_MatMulKr)->Arg(100);
BENCHMARK(BM_MatMulEigen)->Arg(100);
BENCHMARK(BM_MatInvertKr)->Arg(50);
BENCHMARK(BM_MatInvertEigen)->Arg(50);
BENCHMARK(BM_ClassifySphereKr);
BENCHMARK(BM_ClassifySphereGlm);
BENCHMARK(BM_WorldToScreenKr);
BENCHMARK(BM_WorldToScreenGlm);

BENCHMARK_MAIN();
