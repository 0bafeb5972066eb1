// kr_camera.h — a perspective or orthographic camera with its view frustum.
// KR_Camera turns points between world, camera, clip, NDC and screen space, casts picking rays
// and classifies points, spheres and boxes against its six frustum planes. The world and the
// camera space are right-handed; the camera looks along its -z with +x right and +y up.
//
// Screen space is the viewport in pixels, origin at its top-left, +y down:
//   sx = left + (x_ndc + 1) / 2 * width,  sy = top + (1 - y_ndc) / 2 * height,
// and the window depth is always in [0, 1] (z_ndc, or (z_ndc + 1) / 2 for the minus-one-to-one
// range); near maps to 0.
//   KR_Camera cam;                       // at the origin looking along -z, 640 x 480
//   cam.worldToScreen(KR_Vector(0, 0, -0.1), sx, sy, depth)  ->  320, 240, 0
#ifndef KRCORE_KR_CAMERA_H
#define KRCORE_KR_CAMERA_H

#include "kr_base.h"
#include "kr_mth.h"

enum KR_CAMERA_PROJ { KR_CAMERA_PERSPECTIVE = 0, KR_CAMERA_ORTHOGRAPHIC = 1 };

enum KR_CAMERA_CULL { KR_CAMERA_OUTSIDE = 0, KR_CAMERA_INTERSECT = 1, KR_CAMERA_INSIDE = 2 };

// KR_Camera — position, unit orientation (camera to world), projection and viewport, with a
// lazily rebuilt cache of the matrices and planes. Every matrix block is allocated by the
// constructor, so no later operation allocates or fails for memory; a failed construction
// leaves the camera not initialised and every member answers KR_RET_ERR_POBJ. Setters validate
// their arguments and otherwise report KR_RET_ERR_ARG and change nothing. Copyable by value.
class KR_API KR_Camera : public KR_KorvaneClass {
public:
    // At the origin looking along -z; perspective, fovY pi/3, aspect 4/3, near 0.1, far 1000,
    // depth zero-to-one, viewport {0, 0, 640, 480}; orthographic height 2.
    KR_Camera();
    KR_Camera(const KR_Camera& other);
    ~KR_Camera() override;
    KR_Camera& operator=(const KR_Camera& other);

    // Finite coordinates only.
    KR_RET_STATUS setPosition(const KR_Vector& position);
    // Normalised here; a zero or non-finite quaternion is refused.
    KR_RET_STATUS setOrientation(const KR_Quaternion& q);
    // Turns the camera towards target with +y leaning towards up. Refused when target is the
    // position, up is zero, or |forward x up| <= 1e-12 |up| (up parallel to the view direction).
    KR_RET_STATUS lookAt(const KR_Vector& target, const KR_Vector& up);
    // 0 < fovY < pi, aspect > 0, 0 < zNear < zFar; switches to the perspective projection.
    KR_RET_STATUS setPerspective(double fovY, double aspect, double zNear, double zFar);
    // height > 0 (world units), aspect > 0, zNear < zFar of any sign; switches to orthographic.
    KR_RET_STATUS setOrthographic(double height, double aspect, double zNear, double zFar);
    KR_RET_STATUS setDepthRange(KR_MTH_DEPTH_RANGE range);
    // A non-empty rectangle; adjustAspect != 0 also sets the aspect to its width / height.
    KR_RET_STATUS setViewport(const KR_Rect& viewport, unsigned char adjustAspect);

    KR_Vector getPosition() const { return position_; }

    KR_Quaternion getOrientation() const { return orientation_; }

    KR_CAMERA_PROJ getProjection() const { return proj_; }

    KR_MTH_DEPTH_RANGE getDepthRange() const { return depthRange_; }

    KR_Rect getViewport() const { return viewport_; }

    // A displacement along the camera's own axes.
    KR_RET_STATUS moveLocal(const KR_Vector& d);
    // Rotations about an axis in camera space and in world space; a zero axis is refused.
    KR_RET_STATUS rotateLocal(const KR_Vector& axis, double angle);
    KR_RET_STATUS rotateWorld(const KR_Vector& axis, double angle);

    KR_RET_STATUS getViewMatrix(KR_3DMatrix& m) const;
    KR_RET_STATUS getProjMatrix(KR_3DMatrix& m) const;
    KR_RET_STATUS getViewProjMatrix(KR_3DMatrix& m) const;

    KR_RET_STATUS worldToCamera(const KR_Vector& w, KR_Vector& c) const;
    KR_RET_STATUS cameraToWorld(const KR_Vector& c, KR_Vector& w) const;
    // KR_RET_FALSE (output unchanged) when w_clip <= 0, that is at or behind the eye of a
    // perspective camera. An orthographic camera has w_clip = 1 everywhere: a point behind it
    // maps like any other, with a depth below 0 (in front of near) or above 1 (beyond far).
    KR_RET_STATUS worldToNdc(const KR_Vector& w, KR_Vector& ndc) const;
    KR_RET_STATUS worldToScreen(const KR_Vector& w, double& sx, double& sy, double& depth) const;
    // The world point at a screen position and window depth in the camera's own depth range.
    // A depth outside [0, 1] or a non-finite argument: KR_RET_ERR_ARG, w unchanged.
    KR_RET_STATUS screenToWorld(double sx, double sy, double depth, KR_Vector& w) const;
    // Perspective: the ray from the near-plane point towards the pixel, dir unit and pointing
    // away from the eye. Orthographic: from the near-plane point along the view direction.
    KR_RET_STATUS screenToRay(double sx, double sy, KR_ParamLine& ray) const;

    // World-space planes in the order left, right, bottom, top, near, far, with unit normals
    // pointing inwards.
    KR_RET_STATUS getFrustumPlanes(KR_Plane out[6]) const;
    // A point on a plane counts as inside (the frustum is closed); INTERSECT is never answered.
    // A NaN point is OUTSIDE.
    KR_CAMERA_CULL classifyPoint(const KR_Vector& p) const;
    // OUTSIDE when some signed distance < -r (or is NaN), INSIDE when every one is >= r, else
    // INTERSECT.
    KR_CAMERA_CULL classifySphere(const KR_Vector& c, double r) const;
    // The p-/n-vertex test per plane (reversed min/max components are swapped). Conservative:
    // a box near a frustum corner may be INTERSECT although it lies outside.
    KR_CAMERA_CULL classifyBox(const KR_Vector& min, const KR_Vector& max) const;

    unsigned char objIsEnabled() const { return initialised_; }

private:
    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();
    KR_RET_STATUS rotate(const KR_Vector& axis, double angle, bool local);
    void copySettings(const KR_Camera& other);
    // Recomputes the matrices and planes when a setter cleared cacheValid_.
    void rebuild() const;
    KR_RET_STATUS ready() const;
    // dst's block (reported when broken) takes src's numbers.
    static KR_RET_STATUS copyMatrix(const KR_3DMatrix& src, KR_3DMatrix& dst);

    unsigned char initialised_;
    KR_Vector position_;
    KR_Quaternion orientation_;  // unit
    KR_CAMERA_PROJ proj_;
    double fovY_;
    double orthoHeight_;
    double aspect_;
    double zNear_;
    double zFar_;
    KR_MTH_DEPTH_RANGE depthRange_;
    KR_Rect viewport_;  // never empty
    mutable KR_3DMatrix view_;
    mutable KR_3DMatrix projMat_;
    mutable KR_3DMatrix viewProj_;
    mutable KR_3DMatrix invViewProj_;
    mutable KR_Plane planes_[6];
    mutable unsigned char cacheValid_;  // cleared by every setter
    // The numbers of view_, viewProj_ and invViewProj_, taken when the cache is rebuilt: the
    // blocks are private, so nothing replaces them behind the camera.
    mutable const double* viewElems_;
    mutable const double* viewProjElems_;
    mutable const double* invViewProjElems_;
};

#endif  // KRCORE_KR_CAMERA_H
