#include "platform/gpu_choice.h"

#include <gtest/gtest.h>

using platform::AdapterIdentity;
using platform::GpuChoice;
using platform::PickAdapter;

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
