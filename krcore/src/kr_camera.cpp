// kr_camera.cpp — the camera, its cached matrices and the frustum tests.
#include "kr_camera.h"

#include <math.h>
#include <string.h>

#include "kr_report.h"

#define KRI_UNIT "src/kr_camera"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kParallelTolerance = 1e-12;

bool finite(const KR_Vector& v) {
    return isfinite(v.x) && isfinite(v.y) && isfinite(v.z);
}

// (x, y, z, 1) through the row-major 4 x 4 m: x', y', z' and w'.
inline void project4(const double* m, const KR_Vector& p, double out[4]) {
    out[0] = m[0] * p.x + m[1] * p.y + m[2] * p.z + m[3];
    out[1] = m[4] * p.x + m[5] * p.y + m[6] * p.z + m[7];
    out[2] = m[8] * p.x + m[9] * p.y + m[10] * p.z + m[11];
    out[3] = m[12] * p.x + m[13] * p.y + m[14] * p.z + m[15];
}

// The plane a x + b y + c z + d = 0 from the four numbers, with a unit normal.
KR_Plane unitPlane(double a, double b, double c, double d) {
    KR_Plane p(KR_Vector(a, b, c), d);
    p.normalize();
    return p;
}

}  // namespace

// --- KR_Camera ---

KR_Camera::KR_Camera() {
    KR_setUserError(0);
    initDataMembers();
}

KR_Camera::KR_Camera(const KR_Camera& other)
    : KR_KorvaneClass(other),
      view_(other.view_),
      projMat_(other.projMat_),
      viewProj_(other.viewProj_),
      invViewProj_(other.invViewProj_) {
    KR_setUserError(0);
    initialised_ = 0;
    cacheValid_ = 0;
    viewElems_ = viewProjElems_ = invViewProjElems_ = nullptr;
    if (!other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return;
    }
    if (!view_.objIsEnabled() || !projMat_.objIsEnabled() || !viewProj_.objIsEnabled() ||
        !invViewProj_.objIsEnabled())
        return;
    copySettings(other);
    initialised_ = 1;
}

// Everything that defines the camera; the matrices and planes follow from it.
void KR_Camera::copySettings(const KR_Camera& other) {
    position_ = other.position_;
    orientation_ = other.orientation_;
    proj_ = other.proj_;
    fovY_ = other.fovY_;
    orthoHeight_ = other.orthoHeight_;
    aspect_ = other.aspect_;
    zNear_ = other.zNear_;
    zFar_ = other.zFar_;
    depthRange_ = other.depthRange_;
    viewport_ = other.viewport_;
}

KR_Camera::~KR_Camera() {
    KR_setUserError(0);
    cleanupDataMembers();
}

KR_Camera& KR_Camera::operator=(const KR_Camera& other) {
    KR_setUserError(0);
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    if (&other == this) return *this;
    copySettings(other);
    cacheValid_ = 0;
    return *this;
}

KR_RET_STATUS KR_Camera::setPosition(const KR_Vector& position) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (!finite(position))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Camera position: ", "not finite\n");
    position_ = position;
    cacheValid_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::setOrientation(const KR_Quaternion& q) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    KR_Quaternion u = q;
    if (u.normalize() != KR_RET_TRUE)
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Camera orientation: ", "zero quaternion\n");
    orientation_ = u;
    cacheValid_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::lookAt(const KR_Vector& target, const KR_Vector& up) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    KR_Vector forward = target - position_;
    double upLength = up.length();
    if (!finite(target) || forward.normalize() != KR_RET_TRUE || !(upLength > 0.0) ||
        !isfinite(upLength))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Camera look-at: ",
                            "target at the position, or a vector is zero or not finite\n");
    KR_Vector right = forward.cross(up);
    if (!(right.length() > kParallelTolerance * upLength))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG,
                            "KR_Camera look-at: ", "up is parallel to the view direction\n");
    right.normalize();
    KR_Vector upNew = right.cross(forward);
    // The rotation whose columns are right, up and -forward, read back as a quaternion; the
    // view matrix serves as scratch, since the cache is rebuilt anyway.
    double* m = view_.elemsQuiet();
    double r[16] = {right.x, upNew.x, -forward.x, 0.0, right.y, upNew.y, -forward.y, 0.0,
                    right.z, upNew.z, -forward.z, 0.0, 0.0,     0.0,     0.0,        1.0};
    memcpy(m, r, sizeof r);
    KR_Quaternion q;
    KR_RET_STATUS status = q.fromMatrix(view_);
    cacheValid_ = 0;
    if (KRI_FAILED(status)) return status;
    orientation_ = q;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::setPerspective(double fovY, double aspect, double zNear, double zFar) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (!(fovY > 0.0 && fovY < kPi) || !(aspect > 0.0) || !isfinite(aspect) || !(zNear > 0.0) ||
        !(zNear < zFar) || !isfinite(zFar))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG,
                            "KR_Camera perspective: ", "fovY %lf, aspect %lf, near %lf, far %lf\n",
                            fovY, aspect, zNear, zFar);
    proj_ = KR_CAMERA_PERSPECTIVE;
    fovY_ = fovY;
    aspect_ = aspect;
    zNear_ = zNear;
    zFar_ = zFar;
    cacheValid_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::setOrthographic(double height, double aspect, double zNear, double zFar) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (!(height > 0.0) || !isfinite(height) || !(aspect > 0.0) || !isfinite(aspect) ||
        !isfinite(zNear) || !isfinite(zFar) || !(zNear < zFar))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Camera orthographic projection: ",
                            "height %lf, aspect %lf, near %lf, far %lf\n", height, aspect, zNear,
                            zFar);
    proj_ = KR_CAMERA_ORTHOGRAPHIC;
    orthoHeight_ = height;
    aspect_ = aspect;
    zNear_ = zNear;
    zFar_ = zFar;
    cacheValid_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::setDepthRange(KR_MTH_DEPTH_RANGE range) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (range != KR_MTH_DEPTH_ZERO_TO_ONE && range != KR_MTH_DEPTH_MINUS_ONE_TO_ONE)
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Camera depth range: ", "%d\n",
                            static_cast<int>(range));
    depthRange_ = range;
    cacheValid_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::setViewport(const KR_Rect& viewport, unsigned char adjustAspect) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (viewport.isEmpty())
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Camera viewport: ", "empty rectangle\n");
    viewport_ = viewport;
    if (adjustAspect)
        aspect_ = static_cast<double>(viewport.width()) / static_cast<double>(viewport.height());
    cacheValid_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::moveLocal(const KR_Vector& d) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    KR_Vector p = position_ + orientation_.rotate(d);
    if (!finite(p)) return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Camera move: ", "not finite\n");
    position_ = p;
    cacheValid_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::rotateLocal(const KR_Vector& axis, double angle) {
    return rotate(axis, angle, true);
}

KR_RET_STATUS KR_Camera::rotateWorld(const KR_Vector& axis, double angle) {
    return rotate(axis, angle, false);
}

// Turns the orientation about axis, taken in camera space (local) or in world space.
KR_RET_STATUS KR_Camera::rotate(const KR_Vector& axis, double angle, bool local) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    KR_Quaternion q;
    if (q.fromAxisAngle(axis, angle) != KR_RET_TRUE || !isfinite(angle))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Camera rotation: ", "zero axis\n");
    KR_Quaternion r = local ? orientation_ * q : q * orientation_;
    r.normalize();
    orientation_ = r;
    cacheValid_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::getViewMatrix(KR_3DMatrix& m) const {
    KR_RET_STATUS status = ready();
    if (KRI_FAILED(status)) return status;
    return copyMatrix(view_, m);
}

KR_RET_STATUS KR_Camera::getProjMatrix(KR_3DMatrix& m) const {
    KR_RET_STATUS status = ready();
    if (KRI_FAILED(status)) return status;
    return copyMatrix(projMat_, m);
}

KR_RET_STATUS KR_Camera::getViewProjMatrix(KR_3DMatrix& m) const {
    KR_RET_STATUS status = ready();
    if (KRI_FAILED(status)) return status;
    return copyMatrix(viewProj_, m);
}

KR_RET_STATUS KR_Camera::worldToCamera(const KR_Vector& w, KR_Vector& c) const {
    KR_RET_STATUS status = ready();
    if (KRI_FAILED(status)) return status;
    const double* m = viewElems_;
    c = KR_Vector(m[0] * w.x + m[1] * w.y + m[2] * w.z + m[3],
                  m[4] * w.x + m[5] * w.y + m[6] * w.z + m[7],
                  m[8] * w.x + m[9] * w.y + m[10] * w.z + m[11]);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::cameraToWorld(const KR_Vector& c, KR_Vector& w) const {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    w = orientation_.rotate(c) + position_;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::worldToNdc(const KR_Vector& w, KR_Vector& ndc) const {
    KR_RET_STATUS status = ready();
    if (KRI_FAILED(status)) return status;
    double clip[4];
    project4(viewProjElems_, w, clip);
    if (!(clip[3] > 0.0)) return KR_RET_FALSE;
    double inv = 1.0 / clip[3];
    ndc = KR_Vector(clip[0] * inv, clip[1] * inv, clip[2] * inv);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::worldToScreen(const KR_Vector& w,
                                       double& sx,
                                       double& sy,
                                       double& depth) const {
    KR_RET_STATUS status = ready();
    if (KRI_FAILED(status)) return status;
    double clip[4];
    project4(viewProjElems_, w, clip);
    if (!(clip[3] > 0.0)) return KR_RET_FALSE;
    double inv = 1.0 / clip[3];
    double x = clip[0] * inv;
    double y = clip[1] * inv;
    double z = clip[2] * inv;
    double width = static_cast<double>(viewport_.right) - viewport_.left;
    double height = static_cast<double>(viewport_.bottom) - viewport_.top;
    sx = viewport_.left + (x * 0.5 + 0.5) * width;
    sy = viewport_.top + (0.5 - y * 0.5) * height;
    depth = depthRange_ == KR_MTH_DEPTH_ZERO_TO_ONE ? z : z * 0.5 + 0.5;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::screenToWorld(double sx, double sy, double depth, KR_Vector& w) const {
    KR_RET_STATUS status = ready();
    if (KRI_FAILED(status)) return status;
    if (!(depth >= 0.0 && depth <= 1.0) || !isfinite(sx) || !isfinite(sy))
        return KRI_FAIL_MSG(KR_RET_ERR_ARG,
                            "KR_Camera unproject: ", "screen %lf, %lf, depth %lf not in [0, 1]\n",
                            sx, sy, depth);
    double width = static_cast<double>(viewport_.right) - viewport_.left;
    double height = static_cast<double>(viewport_.bottom) - viewport_.top;
    KR_Vector ndc(2.0 * (sx - viewport_.left) / width - 1.0,
                  1.0 - 2.0 * (sy - viewport_.top) / height,
                  depthRange_ == KR_MTH_DEPTH_ZERO_TO_ONE ? depth : 2.0 * depth - 1.0);
    double p[4];
    project4(invViewProjElems_, ndc, p);
    if (p[3] == 0.0) return KR_RET_FALSE;
    double inv = 1.0 / p[3];
    w = KR_Vector(p[0] * inv, p[1] * inv, p[2] * inv);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::screenToRay(double sx, double sy, KR_ParamLine& ray) const {
    KR_Vector nearPoint;
    KR_RET_STATUS status = screenToWorld(sx, sy, 0.0, nearPoint);
    if (status != KR_RET_TRUE) return status;
    KR_Vector dir = proj_ == KR_CAMERA_PERSPECTIVE ? nearPoint - position_
                                                   : orientation_.rotate(KR_Vector(0, 0, -1));
    dir.normalize();
    ray = KR_ParamLine(nearPoint, dir);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::getFrustumPlanes(KR_Plane out[6]) const {
    KR_RET_STATUS status = ready();
    if (KRI_FAILED(status)) return status;
    if (out == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    for (int i = 0; i < 6; ++i)
        out[i] = planes_[i];
    return KR_RET_TRUE;
}

KR_CAMERA_CULL KR_Camera::classifyPoint(const KR_Vector& p) const {
    if (KRI_FAILED(ready())) return KR_CAMERA_OUTSIDE;
    for (int i = 0; i < 6; ++i)
        if (!(planes_[i].signedDistance(p) >= 0.0)) return KR_CAMERA_OUTSIDE;
    return KR_CAMERA_INSIDE;
}

KR_CAMERA_CULL KR_Camera::classifySphere(const KR_Vector& c, double r) const {
    if (KRI_FAILED(ready())) return KR_CAMERA_OUTSIDE;
    bool inside = true;
    for (int i = 0; i < 6; ++i) {
        double d = planes_[i].signedDistance(c);
        if (!(d >= -r)) return KR_CAMERA_OUTSIDE;
        inside &= d >= r;
    }
    return inside ? KR_CAMERA_INSIDE : KR_CAMERA_INTERSECT;
}

KR_CAMERA_CULL KR_Camera::classifyBox(const KR_Vector& min, const KR_Vector& max) const {
    if (KRI_FAILED(ready())) return KR_CAMERA_OUTSIDE;
    KR_Vector lo(fmin(min.x, max.x), fmin(min.y, max.y), fmin(min.z, max.z));
    KR_Vector hi(fmax(min.x, max.x), fmax(min.y, max.y), fmax(min.z, max.z));
    bool inside = true;
    for (int i = 0; i < 6; ++i) {
        const KR_Vector& n = planes_[i].normal;
        KR_Vector pv(n.x >= 0 ? hi.x : lo.x, n.y >= 0 ? hi.y : lo.y, n.z >= 0 ? hi.z : lo.z);
        KR_Vector nv(n.x >= 0 ? lo.x : hi.x, n.y >= 0 ? lo.y : hi.y, n.z >= 0 ? lo.z : hi.z);
        if (!(planes_[i].signedDistance(pv) >= 0.0)) return KR_CAMERA_OUTSIDE;
        if (planes_[i].signedDistance(nv) < 0.0) inside = false;
    }
    return inside ? KR_CAMERA_INSIDE : KR_CAMERA_INTERSECT;
}

KR_RET_STATUS KR_Camera::initDataMembers() {
    initialised_ = 0;
    cacheValid_ = 0;
    viewElems_ = viewProjElems_ = invViewProjElems_ = nullptr;
    position_ = KR_Vector();
    orientation_ = KR_Quaternion();
    proj_ = KR_CAMERA_PERSPECTIVE;
    fovY_ = kPi / 3.0;
    orthoHeight_ = 2.0;
    aspect_ = 4.0 / 3.0;
    zNear_ = 0.1;
    zFar_ = 1000.0;
    depthRange_ = KR_MTH_DEPTH_ZERO_TO_ONE;
    viewport_ = KR_Rect(0, 0, 640, 480);
    // The matrices reported their own allocation failures.
    if (!view_.objIsEnabled() || !projMat_.objIsEnabled() || !viewProj_.objIsEnabled() ||
        !invViewProj_.objIsEnabled())
        return KR_RET_ERR_MEM;
    initialised_ = 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Camera::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    initialised_ = 0;
    cacheValid_ = 0;
    return KR_RET_TRUE;
}

void KR_Camera::rebuild() const {
    // View = inverse of the camera's rigid transform: R = rotation of the conjugate, t = -R p.
    view_.setRotation(orientation_.conjugate());
    double* v = view_.elemsQuiet();
    KR_Vector t(-(v[0] * position_.x + v[1] * position_.y + v[2] * position_.z),
                -(v[4] * position_.x + v[5] * position_.y + v[6] * position_.z),
                -(v[8] * position_.x + v[9] * position_.y + v[10] * position_.z));
    v[3] = t.x;
    v[7] = t.y;
    v[11] = t.z;
    if (proj_ == KR_CAMERA_PERSPECTIVE) {
        projMat_.setPerspective(fovY_, aspect_, zNear_, zFar_, depthRange_);
    } else {
        double h = orthoHeight_ * 0.5;
        double w = h * aspect_;
        projMat_.setOrtho(-w, w, -h, h, zNear_, zFar_, depthRange_);
    }
    viewProj_.mul(projMat_, view_);
    invViewProj_ = viewProj_;
    invViewProj_.invert();
    // Gribb-Hartmann on the rows of proj * view. The near plane is where the depth ranges
    // differ: z_clip >= 0 for zero-to-one, z_clip >= -w_clip for minus-one-to-one.
    const double* m = viewProj_.elemsQuiet();
    const double* r0 = m;
    const double* r1 = m + 4;
    const double* r2 = m + 8;
    const double* r3 = m + 12;
    planes_[0] = unitPlane(r3[0] + r0[0], r3[1] + r0[1], r3[2] + r0[2], r3[3] + r0[3]);
    planes_[1] = unitPlane(r3[0] - r0[0], r3[1] - r0[1], r3[2] - r0[2], r3[3] - r0[3]);
    planes_[2] = unitPlane(r3[0] + r1[0], r3[1] + r1[1], r3[2] + r1[2], r3[3] + r1[3]);
    planes_[3] = unitPlane(r3[0] - r1[0], r3[1] - r1[1], r3[2] - r1[2], r3[3] - r1[3]);
    if (depthRange_ == KR_MTH_DEPTH_ZERO_TO_ONE)
        planes_[4] = unitPlane(r2[0], r2[1], r2[2], r2[3]);
    else
        planes_[4] = unitPlane(r3[0] + r2[0], r3[1] + r2[1], r3[2] + r2[2], r3[3] + r2[3]);
    planes_[5] = unitPlane(r3[0] - r2[0], r3[1] - r2[1], r3[2] - r2[2], r3[3] - r2[3]);
    viewElems_ = view_.elemsQuiet();
    viewProjElems_ = m;
    invViewProjElems_ = invViewProj_.elemsQuiet();
    cacheValid_ = 1;
}

KR_RET_STATUS KR_Camera::copyMatrix(const KR_3DMatrix& src, KR_3DMatrix& dst) {
    KR_RET_STATUS status = KR_RET_TRUE;
    double* d = dst.elems(status);
    if (d == nullptr) return status;
    memcpy(d, src.elemsQuiet(), 16 * sizeof(double));
    return KR_RET_TRUE;
}

// Clears the user error, checks the flag and brings the cache up to date.
KR_RET_STATUS KR_Camera::ready() const {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (!cacheValid_) rebuild();
    return KR_RET_TRUE;
}
