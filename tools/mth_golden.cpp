// mth_golden.cpp — golden tables for the math and camera tests, computed with glm and Eigen.
// Built and run by tools/mth_golden.sh, which writes tests/data/mth_golden.txt. Every table is
// "table <name> <rows> <columns>" followed by rows of numbers printed with 17 significant
// digits; the inputs come first in each row, the expected results after them.
#include <stdio.h>

#include <random>
#include <string>
#include <vector>

#include <Eigen/Dense>

#define GLM_FORCE_CTOR_INIT
#include <glm/ext/matrix_clip_space.hpp>
#include <glm/ext/matrix_projection.hpp>
#include <glm/ext/matrix_transform.hpp>
#include <glm/glm.hpp>
#include <glm/gtc/matrix_access.hpp>
#include <glm/gtc/quaternion.hpp>

namespace {

std::mt19937_64 rng(20261124);

double uniform(double lo, double hi) {
    return lo + (hi - lo) * (static_cast<double>(rng() >> 11) / 9007199254740992.0);
}

struct Table {
    std::string name;
    std::vector<std::vector<double>> rows;
};

std::vector<Table> tables;

void emit(Table& t, std::vector<double> row) {
    t.rows.push_back(std::move(row));
}

Table& table(const char* name) {
    tables.push_back(Table{name, {}});
    return tables.back();
}

// glm is column-major; the library and the tables are row-major.
void pushMat(std::vector<double>& row, const glm::dmat4& m) {
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            row.push_back(m[c][r]);
}

glm::dmat4 randomMat4(bool affine) {
    glm::dmat4 m;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            m[c][r] = uniform(-2, 2) + (r == c ? 3.0 : 0.0);
    if (affine) m = glm::row(m, 3, glm::dvec4(0, 0, 0, 1));
    return m;
}

glm::dquat randomUnitQuat() {
    glm::dquat q(uniform(-1, 1), uniform(-1, 1), uniform(-1, 1), uniform(-1, 1));
    return glm::normalize(q);
}

void matrices() {
    Table& mul = table("mul4");  // a(16) b(16) a*b(16)
    for (int i = 0; i < 16; ++i) {
        glm::dmat4 a = randomMat4(false), b = randomMat4(false);
        std::vector<double> row;
        pushMat(row, a);
        pushMat(row, b);
        pushMat(row, a * b);
        emit(mul, row);
    }
    Table& inv = table("inv4");  // a(16) inverse(16) det
    for (int i = 0; i < 24; ++i) {
        glm::dmat4 a = randomMat4(i % 2 == 0);
        Eigen::Matrix4d e;
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                e(r, c) = a[c][r];
        Eigen::Matrix4d ie = e.inverse();
        std::vector<double> row;
        pushMat(row, a);
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                row.push_back(ie(r, c));
        row.push_back(e.determinant());
        emit(inv, row);
    }
    // n, then a(n x n), inverse(n x n), det; Eigen's partial-pivot LU.
    Table& gen = table("matN");
    for (int n : {1, 2, 3, 5, 8, 13, 20}) {
        Eigen::MatrixXd a(n, n);
        for (int r = 0; r < n; ++r)
            for (int c = 0; c < n; ++c)
                a(r, c) = uniform(-1, 1) + (r == c ? n * 0.5 : 0.0);
        Eigen::PartialPivLU<Eigen::MatrixXd> lu(a);
        Eigen::MatrixXd ia = lu.inverse();
        std::vector<double> row{static_cast<double>(n)};
        for (int r = 0; r < n; ++r)
            for (int c = 0; c < n; ++c)
                row.push_back(a(r, c));
        for (int r = 0; r < n; ++r)
            for (int c = 0; c < n; ++c)
                row.push_back(ia(r, c));
        row.push_back(lu.determinant());
        emit(gen, row);
    }
    // rows, inner, cols, a, b, a*b.
    Table& prod = table("mulN");
    int shapes[][3] = {{1, 1, 1}, {2, 3, 4}, {5, 1, 3}, {7, 6, 2}, {9, 9, 9}, {3, 17, 5}};
    for (auto& s : shapes) {
        Eigen::MatrixXd a = Eigen::MatrixXd::Zero(s[0], s[1]);
        Eigen::MatrixXd b = Eigen::MatrixXd::Zero(s[1], s[2]);
        for (int r = 0; r < s[0]; ++r)
            for (int c = 0; c < s[1]; ++c)
                a(r, c) = uniform(-3, 3);
        for (int r = 0; r < s[1]; ++r)
            for (int c = 0; c < s[2]; ++c)
                b(r, c) = uniform(-3, 3);
        Eigen::MatrixXd p = a * b;
        std::vector<double> row{double(s[0]), double(s[1]), double(s[2])};
        for (const Eigen::MatrixXd* m : {&a, &b, &p})
            for (int r = 0; r < m->rows(); ++r)
                for (int c = 0; c < m->cols(); ++c)
                    row.push_back((*m)(r, c));
        emit(prod, row);
    }
}

void quaternions() {
    // a(wxyz) b(wxyz) t v(xyz): a*b, slerp(a, b, t), rotate(a, v).
    Table& q = table("quat");
    for (int i = 0; i < 24; ++i) {
        glm::dquat a = randomUnitQuat(), b = randomUnitQuat();
        double t = uniform(0, 1);
        glm::dvec3 v(uniform(-5, 5), uniform(-5, 5), uniform(-5, 5));
        Eigen::Quaterniond ea(a.w, a.x, a.y, a.z), eb(b.w, b.x, b.y, b.z);
        if (std::abs(ea.dot(eb)) > 0.999) continue;  // both sides switch to a linear blend
        Eigen::Quaterniond s = ea.slerp(t, eb);
        glm::dquat p = a * b;
        glm::dvec3 r = a * v;
        emit(q, {a.w, a.x, a.y, a.z, b.w,   b.x,   b.y,   b.z,   t,   v.x, v.y, v.z,
                 p.w, p.x, p.y, p.z, s.w(), s.x(), s.y(), s.z(), r.x, r.y, r.z});
    }
}

void projections() {
    // fovY aspect near far, then perspectiveRH_ZO(16) and perspectiveRH_NO(16).
    Table& p = table("perspective");
    for (int i = 0; i < 6; ++i) {
        double fov = uniform(0.2, 2.8), aspect = uniform(0.5, 2.5);
        double n = uniform(0.01, 2), f = n + uniform(1, 500);
        std::vector<double> row{fov, aspect, n, f};
        pushMat(row, glm::perspectiveRH_ZO(fov, aspect, n, f));
        pushMat(row, glm::perspectiveRH_NO(fov, aspect, n, f));
        emit(p, row);
    }
    // l r b t n f, then ZO(16) and NO(16), for ortho and frustum.
    Table& o = table("ortho");
    Table& fr = table("frustum");
    for (int i = 0; i < 6; ++i) {
        double l = uniform(-5, -0.5), r = uniform(0.5, 5), b = uniform(-5, -0.5);
        double t = uniform(0.5, 5), n = uniform(0.05, 3), f = n + uniform(1, 100);
        std::vector<double> row{l, r, b, t, n, f};
        std::vector<double> row2 = row;
        pushMat(row, glm::orthoRH_ZO(l, r, b, t, n, f));
        pushMat(row, glm::orthoRH_NO(l, r, b, t, n, f));
        pushMat(row2, glm::frustumRH_ZO(l, r, b, t, n, f));
        pushMat(row2, glm::frustumRH_NO(l, r, b, t, n, f));
        emit(o, row);
        emit(fr, row2);
    }
    // eye(3) target(3) up(3), lookAtRH(16).
    Table& la = table("lookat");
    for (int i = 0; i < 8; ++i) {
        glm::dvec3 eye(uniform(-9, 9), uniform(-9, 9), uniform(-9, 9));
        glm::dvec3 target(uniform(-9, 9), uniform(-9, 9), uniform(-9, 9));
        glm::dvec3 up(uniform(-1, 1), uniform(-1, 1), uniform(-1, 1));
        std::vector<double> row{eye.x,    eye.y, eye.z, target.x, target.y,
                                target.z, up.x,  up.y,  up.z};
        pushMat(row, glm::lookAtRH(eye, target, up));
        emit(la, row);
    }
}

// One camera of the "camera" and "spheres" tables: ortho, range, eye, target, up, fovY or
// height, aspect, near, far, viewport left, top, width, height.
struct Cam {
    double ortho, range;
    glm::dvec3 eye, target, up;
    double fovOrHeight, aspect, n, f;
    double left, top, width, height;
    glm::dmat4 view, proj;
};

Cam randomCamera(int i) {
    Cam c;
    c.ortho = i % 2;
    c.range = (i / 2) % 2;
    c.eye = glm::dvec3(uniform(-5, 5), uniform(-5, 5), uniform(-5, 5));
    c.target = c.eye + glm::dvec3(uniform(-3, 3), uniform(-3, 3), uniform(-3, 3));
    c.up = glm::dvec3(uniform(-1, 1), 1.0, uniform(-1, 1));
    c.fovOrHeight = c.ortho ? uniform(2, 20) : uniform(0.5, 2);
    c.aspect = uniform(0.75, 2);
    c.n = uniform(0.1, 1);
    c.f = c.n + uniform(20, 60);
    c.left = std::floor(uniform(0, 50));
    c.top = std::floor(uniform(0, 50));
    c.width = std::floor(uniform(200, 1000));
    c.height = std::floor(uniform(200, 1000));
    c.view = glm::lookAtRH(c.eye, c.target, c.up);
    double h = c.fovOrHeight / 2, w = h * c.aspect;
    if (c.ortho)
        c.proj = c.range ? glm::orthoRH_NO(-w, w, -h, h, c.n, c.f)
                         : glm::orthoRH_ZO(-w, w, -h, h, c.n, c.f);
    else
        c.proj = c.range ? glm::perspectiveRH_NO(c.fovOrHeight, c.aspect, c.n, c.f)
                         : glm::perspectiveRH_ZO(c.fovOrHeight, c.aspect, c.n, c.f);
    return c;
}

std::vector<double> cameraRow(const Cam& c) {
    return {c.ortho,    c.range, c.eye.x, c.eye.y, c.eye.z,       c.target.x, c.target.y,
            c.target.z, c.up.x,  c.up.y,  c.up.z,  c.fovOrHeight, c.aspect,   c.n,
            c.f,        c.left,  c.top,   c.width, c.height};
}

void cameras() {
    // camera(19), world point(3), screen x, y, depth, then the world point unprojected from
    // (x, y, depth) by glm::unProject.
    Table& t = table("camera");
    // camera(19), centre(3), radius, class (0 outside, 1 intersect, 2 inside).
    Table& s = table("spheres");
    for (int i = 0; i < 8; ++i) {
        Cam c = randomCamera(i);
        glm::dvec4 vp(c.left, 0, c.width, c.height);
        glm::dmat4 inv = glm::inverse(c.view);
        for (int k = 0; k < 6; ++k) {
            // A point in front of the camera, inside the far plane.
            glm::dvec3 local(uniform(-2, 2), uniform(-2, 2), -uniform(c.n + 0.5, c.f * 0.9));
            glm::dvec3 w = glm::dvec3(inv * glm::dvec4(local, 1));
            glm::dvec3 win = c.range ? glm::projectNO(w, c.view, c.proj, vp)
                                     : glm::projectZO(w, c.view, c.proj, vp);
            glm::dvec3 back = c.range ? glm::unProjectNO(win, c.view, c.proj, vp)
                                      : glm::unProjectZO(win, c.view, c.proj, vp);
            std::vector<double> row = cameraRow(c);
            // glm's window y grows upwards from the viewport's bottom; screens grow downwards.
            double sy = c.top + c.height - win.y;
            row.insert(row.end(), {w.x, w.y, w.z, win.x, sy, win.z, back.x, back.y, back.z});
            emit(t, row);
        }
        glm::dmat4 m = c.proj * c.view;
        glm::dvec4 r0 = glm::row(m, 0), r1 = glm::row(m, 1), r2 = glm::row(m, 2);
        glm::dvec4 r3 = glm::row(m, 3);
        glm::dvec4 planes[6] = {r3 + r0, r3 - r0, r3 + r1, r3 - r1, c.range ? r3 + r2 : r2,
                                r3 - r2};
        for (glm::dvec4& p : planes)
            p /= glm::length(glm::dvec3(p));
        for (int k = 0; k < 12;) {
            glm::dvec3 local(uniform(-8, 8), uniform(-8, 8), -uniform(-5, c.f * 1.2));
            glm::dvec3 centre = glm::dvec3(inv * glm::dvec4(local, 1));
            double radius = uniform(0.01, 3);
            int cls = 2;
            bool borderline = false;
            for (glm::dvec4& p : planes) {
                double d = glm::dot(glm::dvec3(p), centre) + p.w;
                if (std::abs(d + radius) < 1e-6 || std::abs(d - radius) < 1e-6) borderline = true;
                if (d < -radius) cls = 0;
                if (d < radius && cls == 2) cls = 1;
            }
            if (borderline) continue;
            std::vector<double> row = cameraRow(c);
            row.insert(row.end(), {centre.x, centre.y, centre.z, radius, double(cls)});
            emit(s, row);
            ++k;
        }
    }
}

}  // namespace

int main() {
    matrices();
    quaternions();
    projections();
    cameras();
    printf("# Golden tables of the math and camera tests: tools/mth_golden.sh writes this file\n"
           "# with glm %d and Eigen %d.%d.%d. Do not edit by hand.\n",
           GLM_VERSION, EIGEN_WORLD_VERSION, EIGEN_MAJOR_VERSION, EIGEN_MINOR_VERSION);
    for (const Table& t : tables) {
        printf("table %s %zu %zu\n", t.name.c_str(), t.rows.size(),
               t.rows.empty() ? size_t(0) : t.rows[0].size());
        for (const std::vector<double>& row : t.rows) {
            for (size_t i = 0; i < row.size(); ++i)
                printf("%s%.17g", i ? " " : "", row[i]);
            printf("\n");
        }
    }
    return 0;
}
