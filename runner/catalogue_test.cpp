#include "runner/catalogue.h"

#include <gtest/gtest.h>

#include <string>

#include "core/settings.h"

namespace {

std::string NameOf(int test3d, int api3d) {
    DemoChoice c;
    return ChooseDemo(test3d, api3d, &c) ? c.displayName : "<none>";
}

TEST(Catalogue, DispatchByTestThenApi) {
    EXPECT_EQ(NameOf(0, 2), "Fur GL2");
    EXPECT_EQ(NameOf(0, 3), "Fur GL3");
    EXPECT_EQ(NameOf(0, 4), "AMark GL2");  // the OpenGL 4 object under its historical name
    EXPECT_EQ(NameOf(0, 9), "Fur D3D9");
    EXPECT_EQ(NameOf(0, 10), "Fur D3D10");
    EXPECT_EQ(NameOf(0, 11), "Fur D3D11");
    EXPECT_EQ(NameOf(0, 5), "Fur GL2");
    EXPECT_EQ(NameOf(2003, 11), "Furry VXA GL2");
    EXPECT_EQ(NameOf(2102, 2), "Furry VXA GL3");
    EXPECT_EQ(NameOf(2006, 2), "Furry VXA D3D9");
    EXPECT_EQ(NameOf(2010, 2), "Furry VXA D3D10");
    EXPECT_EQ(NameOf(2015, 2), "Furry VXA D3D11");
    EXPECT_EQ(NameOf(2205, 2), "AMark GL4 GPU PhysX");
    EXPECT_EQ(NameOf(2206, 2), "AMark GL4 CPU PhysX");
    // A test application's scene, once the application is selected, runs on
    // the same thread under the application's name, through its own API.
    EXPECT_EQ(NameOf(2002, 9), "Wavy Plane (GL2)");
    DemoChoice app;
    ASSERT_TRUE(ChooseDemo(2204, 2, &app));
    EXPECT_EQ(ApiIdOf(app.demoClass), kApiOpenGL4);
    EXPECT_FALSE(app.amarkMode);
    EXPECT_EQ(NameOf(1234, 2), "<none>");

    DemoChoice c;
    ASSERT_TRUE(ChooseDemo(0, 4, &c));
    EXPECT_EQ(c.demoClass, DemoClass::OpenGL4);
    EXPECT_TRUE(c.amarkMode);
    EXPECT_FALSE(c.forceAmarkSetup);
    ASSERT_TRUE(ChooseDemo(2010, 4, &c));
    EXPECT_EQ(ApiIdOf(c.demoClass), 10);
}

TEST(Catalogue, ForcedSettings) {
    StartupOptionsRecord o;
    InitStartupOptions(o, 2);
    o.furry_object = 2;
    DemoChoice c;
    ChooseDemo(2003, 2, &c);
    ApplyForcedSettings(c, true, o);
    EXPECT_EQ(o.furry_object, 1);  // a Furry test always draws the VXA object

    CopyText(o.aa_mode, sizeof o.aa_mode, "8X MSAA");
    ChooseDemo(2205, 9, &c);
    ApplyForcedSettings(c, false, o);
    EXPECT_EQ(o.api3d, 4);
    EXPECT_FALSE(o.enable_gpu_physx);  // no GPU PhysX on this machine: the name stays
    EXPECT_STREQ(o.aa_mode, "Off");
    ApplyForcedSettings(c, true, o);
    EXPECT_TRUE(o.enable_gpu_physx);
    ChooseDemo(2206, 9, &c);
    ApplyForcedSettings(c, true, o);
    EXPECT_FALSE(o.enable_gpu_physx);
    EXPECT_TRUE(o.reserved_benchmark_flags[0]);
    EXPECT_FALSE(o.reserved_benchmark_flags[1]);
}

TEST(Catalogue, DirectStartsAndTestApplications) {
    for (int id : {2003, 2006, 2010, 2015, 2102, 2205, 2206}) EXPECT_TRUE(StartsThrough3DWindow(id)) << id;
    for (int id : {0, 2001, 2002, 2101, 2201}) EXPECT_FALSE(StartsThrough3DWindow(id)) << id;
    for (int id : {2002, 2101, 2201, 2202, 2203, 2204}) EXPECT_TRUE(StartsAsTestApplication(id)) << id;
    EXPECT_FALSE(StartsAsTestApplication(2001));  // reached from the launcher only
    EXPECT_FALSE(StartsAsTestApplication(2003));
    ASSERT_EQ(kTestAppCount, 7);
    for (int i = 0; i < kTestAppCount; ++i) {
        std::string d = kTestApps[i].description;
        EXPECT_EQ(d.substr(0, 4), "%s: ") << kTestApps[i].id;
        EXPECT_NE(d.find("Online score: "), std::string::npos);
    }
    EXPECT_STREQ(FindTestApp(2203)->displayName, "Tessy Spheres on Plane v2 (GL4)");
    EXPECT_EQ(FindTestApp(2003), nullptr);
}

}  // namespace
