#include "platform/gpu_choice.h"

#include <gtest/gtest.h>

using platform::AdapterIdentity;
using platform::GpuChoice;
using platform::PickAdapter;
using platform::DisplayDeviceRow;
using platform::IdentifyAffinityGpus;
using platform::ParsePciDeviceId;
using platform::PickByRendererName;

TEST(PickAdapter, SamePciIdentityIsTakenInInventoryOrder) {
    // Two identical boards and a third of another kind, as an API lists them.
    const std::vector<AdapterIdentity> adapters = {{0x10de, 0x2684, false}, {0x1002, 0x744c, false},
                                                   {0x10de, 0x2684, false}, {-1, -1, true}};
    GpuChoice c;
    c.index = 1;
    c.pciVendor = 0x10de;
    c.pciDevice = 0x2684;
    EXPECT_EQ(PickAdapter(c, adapters), 0);
    c.sameBefore = 1;
    EXPECT_EQ(PickAdapter(c, adapters), 2);
    c.sameBefore = 2;  // a third board of that kind the API does not see
    EXPECT_EQ(PickAdapter(c, adapters), -1);
    c.pciVendor = 0x1002;
    c.pciDevice = 0x744c;
    c.sameBefore = 0;
    EXPECT_EQ(PickAdapter(c, adapters), 1);
    c.pciVendor = 0x8086;
    EXPECT_EQ(PickAdapter(c, adapters), -1);
}

TEST(PickAdapter, GpuWithoutIdentityIsTheOnlySoftwareOrOnlyAdapter) {
    GpuChoice c;
    c.index = 1;
    EXPECT_EQ(PickAdapter(c, {{0x10de, 0x2684, false}, {-1, -1, true}}), 1);
    EXPECT_EQ(PickAdapter(c, {{0x10de, 0x2684, false}}), 0);
    // Ambiguous or empty: no guess.
    EXPECT_EQ(PickAdapter(c, {{0x10de, 0x2684, false}, {0x1002, 0x744c, false}}), -1);
    EXPECT_EQ(PickAdapter(c, {{-1, -1, true}, {-1, -1, true}}), -1);
    EXPECT_EQ(PickAdapter(c, {}), -1);
}

TEST(ParsePciDeviceId, ReadsVendorAndDeviceOfPciIdentifiersOnly) {
    int v = 7, d = 7;
    EXPECT_TRUE(ParsePciDeviceId("PCI\\VEN_10DE&DEV_2684&SUBSYS_16F310DE&REV_A1", &v, &d));
    EXPECT_EQ(v, 0x10de);
    EXPECT_EQ(d, 0x2684);
    EXPECT_TRUE(ParsePciDeviceId("pci\\ven_1002&dev_744c", &v, &d));
    EXPECT_EQ(v, 0x1002);
    EXPECT_EQ(d, 0x744c);
    v = d = 7;
    // A software or remote adapter, a truncated or malformed identifier.
    for (const char* bad : {"ROOT\\BasicRender", "", "PCI\\VEN_10DE", "PCI\\VEN_10DE&DEV_26", "PCI\\VEN_10XE&DEV_2684",
                            "USB\\VEN_10DE&DEV_2684"})
        EXPECT_FALSE(ParsePciDeviceId(bad, &v, &d)) << bad;
    EXPECT_EQ(v, 7);
    EXPECT_EQ(d, 7);
}

TEST(IdentifyAffinityGpus, EachGpuTakesTheIdentityOfItsFirstListedDisplay) {
    const std::vector<DisplayDeviceRow> displays = {
        {"\\\\.\\DISPLAY1", "PCI\\VEN_10DE&DEV_2684&SUBSYS_16F310DE"},
        {"\\\\.\\DISPLAY2", "PCI\\VEN_10DE&DEV_2684&SUBSYS_16F310DE"},
        {"\\\\.\\DISPLAY3", "PCI\\VEN_10DE&DEV_2204"},
        {"\\\\.\\DISPLAY4", "ROOT\\BasicDisplay"},
    };
    // GPU 0 drives display 3 (its first display, 9, is not listed), GPU 1
    // displays 2 and 1, GPU 2 only the software display, GPU 3 none.
    const auto ids = IdentifyAffinityGpus({{"\\\\.\\DISPLAY9", "\\\\.\\display3"}, {"\\\\.\\DISPLAY2", "\\\\.\\DISPLAY1"},
                                           {"\\\\.\\DISPLAY4"}, {}},
                                          displays);
    ASSERT_EQ(ids.size(), 4u);
    EXPECT_EQ(ids[0].pciDevice, 0x2204);
    EXPECT_EQ(ids[1].pciVendor, 0x10de);
    EXPECT_EQ(ids[1].pciDevice, 0x2684);
    EXPECT_EQ(ids[2].pciVendor, -1);
    EXPECT_EQ(ids[3].pciDevice, -1);

    // Matched against the inventory: the second board of the 2684 kind is
    // not among the GPUs the extension lists; the 2204 is its first.
    GpuChoice c;
    c.index = 2;
    c.pciVendor = 0x10de;
    c.pciDevice = 0x2684;
    EXPECT_EQ(PickAdapter(c, ids), 1);
    c.sameBefore = 1;
    EXPECT_EQ(PickAdapter(c, ids), -1);
    c.pciDevice = 0x2204;
    c.sameBefore = 0;
    EXPECT_EQ(PickAdapter(c, ids), 0);
}

TEST(PickByRendererName, SameNamesAreTakenInOrderAndANamelessChoiceMatchesNothing) {
    const std::vector<std::string> renderers = {"AMD Radeon RX 7900 XTX", "AMD Radeon Pro W7800 ",
                                                "amd radeon rx 7900 xtx", "AMD Radeon RX 7900 XT"};
    GpuChoice c;
    c.index = 3;
    c.name = "AMD Radeon RX 7900 XTX";
    EXPECT_EQ(PickByRendererName(c, renderers), 0);
    c.sameBefore = 1;
    EXPECT_EQ(PickByRendererName(c, renderers), 2);
    c.sameBefore = 2;
    EXPECT_EQ(PickByRendererName(c, renderers), -1);
    // A name that only begins another one is not that one.
    c.name = "AMD Radeon RX 7900";
    c.sameBefore = 0;
    EXPECT_EQ(PickByRendererName(c, renderers), -1);
    c.name = " AMD Radeon Pro W7800";
    EXPECT_EQ(PickByRendererName(c, renderers), 1);
    c.name = "";
    EXPECT_EQ(PickByRendererName(c, {""}), -1);
}
