// test_camera.cpp — KR_Camera: projections and unprojection against glm, sphere culling against
// glm's planes, the depth ranges, the frustum edges and failed construction.
#include <math.h>

#include "mth_golden.h"
#include "test_support.h"

namespace {

using krtest::golden;
using krtest::nearAll;

const KR_MTH_DEPTH_RANGE kRanges[] = {KR_MTH_DEPTH_ZERO_TO_ONE, KR_MTH_DEPTH_MINUS_ONE_TO_ONE};

// The camera of a golden row: ortho, range, eye, target, up, fovY or height, aspect, near, far,
// viewport left, top, width, height.
void setUp(KR_Camera& cam, const krtest::GoldenRow& r) {
    ASSERT_KR_OK(cam.setPosition(KR_Vector(r[2], r[3], r[4])));
    ASSERT_KR_OK(cam.lookAt(KR_Vector(r[5], r[6], r[7]), KR_Vector(r[8], r[9], r[10])));
    if (r[0] != 0) {
        ASSERT_KR_OK(cam.setOrthographic(r[11], r[12], r[13], r[14]));
    } else {
        ASSERT_KR_OK(cam.setPerspective(r[11], r[12], r[13], r[14]));
    }
    ASSERT_KR_OK(cam.setDepthRange(kRanges[r[1] != 0]));
    int left = static_cast<int>(r[15]), top = static_cast<int>(r[16]);
    ASSERT_KR_OK(cam.setViewport(
            KR_Rect(left, top, left + static_cast<int>(r[17]), top + static_cast<int>(r[18])), 0));
}

}  // namespace

TEST(CameraGolden, ScreenPointsAndUnprojectionMatchGlm) {
    for (const krtest::GoldenRow& r : golden("camera")) {
        KR_Camera cam;
        setUp(cam, r);
        KR_Vector w(r[19], r[20], r[21]), back;
        double screen[3];
        ASSERT_KR_OK(cam.worldToScreen(w, screen[0], screen[1], screen[2]));
        EXPECT_TRUE(nearAll(screen, &r[22], 3));
        ASSERT_KR_OK(cam.screenToWorld(r[22], r[23], r[24], back));
        // Unprojection near the far plane is ill-conditioned for both sides: 1e-9.
        EXPECT_TRUE(nearAll(&back.x, &r[25], 3, 1e-9));
        EXPECT_TRUE(nearAll(&back.x, &w.x, 3, 1e-9));
    }
}

TEST(CameraGolden, SpheresClassifyAsGlmPlanesSay) {
    for (const krtest::GoldenRow& r : golden("spheres")) {
        KR_Camera cam;
        setUp(cam, r);
        EXPECT_EQ(static_cast<int>(r[23]),
                  cam.classifySphere(KR_Vector(r[19], r[20], r[21]), r[22]));
    }
}

TEST(Camera, DepthRangesAndPlanesInBothProjections) {
    for (int ortho = 0; ortho < 2; ++ortho) {
        for (KR_MTH_DEPTH_RANGE range : kRanges) {
            SCOPED_TRACE(std::to_string(ortho) + "/" + std::to_string(range));
            KR_Camera cam;
            ASSERT_KR_OK(cam.setPosition(KR_Vector(1, 2, 3)));
            ASSERT_KR_OK(cam.rotateWorld(KR_Vector(0, 1, 0), 0.7));
            if (ortho) {
                ASSERT_KR_OK(cam.setOrthographic(4, 1.5, 0.1, 100));
            }
            ASSERT_KR_OK(cam.setDepthRange(range));
            KR_Vector nearW, farW, c;
            ASSERT_KR_OK(cam.screenToWorld(100, 50, 0, nearW));
            ASSERT_KR_OK(cam.screenToWorld(100, 50, 1, farW));
            ASSERT_KR_OK(cam.worldToCamera(nearW, c));
            EXPECT_NEAR(-0.1, c.z, 1e-12);
            ASSERT_KR_OK(cam.worldToCamera(farW, c));
            EXPECT_NEAR(ortho ? -100 : -1000, c.z, 1e-11 * fabs(c.z));  // far: ill-conditioned
            double sx, sy, depth;
            ASSERT_KR_OK(cam.worldToScreen(farW, sx, sy, depth));
            EXPECT_NEAR(100, sx, 1e-9);
            EXPECT_NEAR(50, sy, 1e-9);
            EXPECT_NEAR(1, depth, 1e-12);
            KR_Vector ahead;
            ASSERT_KR_OK(cam.cameraToWorld(KR_Vector(0, 0, -1), ahead));
            EXPECT_EQ(KR_CAMERA_INSIDE, cam.classifyPoint(ahead));
            EXPECT_EQ(KR_CAMERA_INTERSECT, cam.classifySphere(nearW, 0.05));  // straddles near
            KR_Vector beyond;
            ASSERT_KR_OK(cam.cameraToWorld(KR_Vector(0, 0, ortho ? -100.5 : -1000.5), beyond));
            EXPECT_EQ(KR_CAMERA_OUTSIDE, cam.classifySphere(beyond, 0.25));
            EXPECT_EQ(KR_CAMERA_INSIDE, cam.classifyBox(ahead - KR_Vector(.01, .01, .01),
                                                        ahead + KR_Vector(.01, .01, .01)));
            KR_Plane planes[6];
            ASSERT_KR_OK(cam.getFrustumPlanes(planes));
            for (const KR_Plane& p : planes) {
                EXPECT_NEAR(1, p.normal.length(), 1e-15);
                EXPECT_GT(p.signedDistance(ahead), 0);
            }
            KR_ParamLine ray;
            ASSERT_KR_OK(cam.screenToRay(320, 240, ray));
            EXPECT_TRUE(
                    ray.point.isNear(cam.getPosition() + (ahead - cam.getPosition()) * 0.1, 1e-12));
        }
    }
}

TEST(Camera, EdgesAndBadArguments) {
    KR_Camera cam;
    double sx = -1, sy = -1, depth = -1;
    ASSERT_KR_OK(cam.worldToScreen(KR_Vector(0, 0, -0.1), sx, sy, depth));
    EXPECT_TRUE(fabs(sx - 320) < 1e-12 && fabs(sy - 240) < 1e-12 && fabs(depth) < 1e-12);
    sx = -1;
    EXPECT_KR_STATUS(KR_RET_FALSE, cam.worldToScreen(KR_Vector(0, 0, 1), sx, sy, depth));
    EXPECT_KR_STATUS(KR_RET_FALSE, cam.worldToScreen(KR_Vector(0, 0, 0), sx, sy, depth));
    EXPECT_EQ(-1, sx);  // behind the eye: nothing written
    ASSERT_KR_OK(cam.setOrthographic(2, 1, 0.5, 10));
    ASSERT_KR_OK(cam.worldToScreen(KR_Vector(0, 0, 1), sx, sy, depth));
    EXPECT_LT(depth, 0);  // orthographic: behind the eye still maps, in front of near
    // Points exactly on a plane belong to the frustum: here x = -1 (left), z = 1 (near) and
    // z = -1 (far) are exact.
    KR_Camera box;
    ASSERT_KR_OK(box.setOrthographic(2, 1, -1, 1));
    const KR_Vector onPlanes[] = {{-1, 0, 0}, {0, 0, 1}, {0, 0, -1}, {1, 1, 1}};
    for (const KR_Vector& p : onPlanes)
        EXPECT_EQ(KR_CAMERA_INSIDE, box.classifySphere(p, 0.0));
    EXPECT_EQ(KR_CAMERA_OUTSIDE, box.classifyPoint(KR_Vector(0, 0, nextafter(1.0, 2.0))));
    krtest::ReportCapture capture;
    KR_Vector w(7, 7, 7);
    const double badDepths[] = {-0.001, 1.001, NAN};
    for (double d : badDepths)
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, cam.screenToWorld(1, 1, d, w));
    EXPECT_EQ(KR_Vector(7, 7, 7), w);
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, cam.lookAt(KR_Vector(0, 5, 0), KR_Vector(0, -2, 0)));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, cam.lookAt(KR_Vector(), KR_Vector(0, 1, 0)));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, cam.setPerspective(0, 1, 0.1, 10));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, cam.setPerspective(1, 1, 0.0, 10));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, cam.setPerspective(1, 1, 5, 5));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, cam.setOrthographic(2, 1, 3, -3));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, cam.setViewport(KR_Rect(5, 5, 5, 9), 1));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, cam.setOrientation(KR_Quaternion(0, 0, 0, 0)));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, cam.rotateLocal(KR_Vector(), 1));
    EXPECT_EQ(KR_CAMERA_ORTHOGRAPHIC, cam.getProjection());  // refused setters changed nothing
    EXPECT_NE(std::string::npos, capture.text().find("src/kr_camera"));
    // Perspective again, turned to look down -y with up along -z: a picked ray goes down.
    ASSERT_KR_OK(cam.setPerspective(1, 1, 0.1, 10));
    ASSERT_KR_OK(cam.lookAt(KR_Vector(0, -5, 0), KR_Vector(0, 0, -1)));
    KR_ParamLine ray;
    ASSERT_KR_OK(cam.screenToRay(320, 240, ray));
    EXPECT_TRUE(ray.dir.isNear(KR_Vector(0, -1, 0), 1e-12));
}

TEST(Camera, FailedConstructionLeavesItUnusable) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    krtest::forEachAllocationFailure(
            [] {
                KR_Camera cam;
                KR_Vector c;
                KR_RET_STATUS status = cam.worldToCamera(KR_Vector(), c);
                return cam.objIsEnabled() ? status : KR_RET_ERR_MEM;
            },
            [](KR_RET_STATUS status, unsigned long) { EXPECT_KR_STATUS(KR_RET_ERR_MEM, status); });
    krTesting::failAllocation(2);
    KR_Camera broken;
    krTesting::failAllocation(0);
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, broken.setPosition(KR_Vector()));
    EXPECT_EQ(KR_CAMERA_OUTSIDE, broken.classifySphere(KR_Vector(), 1));
}
