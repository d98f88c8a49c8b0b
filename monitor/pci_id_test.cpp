#include "monitor/pci_id.h"

#include <gtest/gtest.h>

#include <string>

namespace ProbeGPU {
namespace {

TEST(PnpIdString, FieldsAreCutAtFixedPositions) {
    PciIdFields f = ParsePnpIdString("PCI\\VEN_10DE&DEV_13C0&SUBSYS_31701462&REV_A1");
    EXPECT_STREQ(f.vendorHex, "10DE");
    EXPECT_STREQ(f.deviceHex, "13C0");
    EXPECT_STREQ(f.subsystemHex, "31701462");
    EXPECT_STREQ(f.revisionHex, "A1");
    EXPECT_EQ(f.vendor, 0x10DE);
    EXPECT_EQ(f.device, 0x13C0);
    EXPECT_EQ(f.subsystem, 0x31701462);
    EXPECT_EQ(f.revision, 0xA1);
    EXPECT_EQ(f.subsystemVendor(), 0x1462);
    EXPECT_EQ(f.subsystemDevice(), 0x3170);
}

TEST(PnpIdString, LowerCaseHexIsAccepted) {
    PciIdFields f = ParsePnpIdString("PCI\\VEN_1002&DEV_67b0&SUBSYS_0b001002&REV_00");
    EXPECT_EQ(f.device, 0x67B0);
    EXPECT_EQ(f.subsystem, 0x0B001002);
    EXPECT_EQ(f.revision, 0);
}

TEST(PnpIdString, ShortOrMissingTextLeavesFieldsUnparsed) {
    PciIdFields none = ParsePnpIdString(nullptr);
    EXPECT_EQ(none.vendor, -1);
    PciIdFields empty = ParsePnpIdString("");
    EXPECT_EQ(empty.vendor, -1);
    EXPECT_EQ(empty.device, -1);
    // Cut after the device: subsystem and revision stay -1.
    PciIdFields shortId = ParsePnpIdString("PCI\\VEN_8086&DEV_3E92");
    EXPECT_EQ(shortId.vendor, 0x8086);
    EXPECT_EQ(shortId.device, 0x3E92);
    EXPECT_EQ(shortId.subsystem, -1);
    EXPECT_EQ(shortId.revision, -1);
    EXPECT_EQ(shortId.subsystemVendor(), -1);
    // A field cut in the middle is parsed as far as it goes.
    PciIdFields cut = ParsePnpIdString("PCI\\VEN_80");
    EXPECT_EQ(cut.vendor, 0x80);
    EXPECT_STREQ(cut.vendorHex, "80");
}

TEST(PnpIdString, GarbageFieldsAreRejectedNotGuessed) {
    PciIdFields f = ParsePnpIdString("PCI\\VEN_ZZZZ&DEV_13C0&SUBSYS_XYZ01462&REV_A1");
    EXPECT_EQ(f.vendor, -1);
    EXPECT_EQ(f.device, 0x13C0);
    EXPECT_EQ(f.subsystem, -1);
    EXPECT_EQ(f.revision, 0xA1);
    // Something else entirely: fields fall where they fall and fail.
    PciIdFields other = ParsePnpIdString("ROOT\\BasicDisplay\\0000");
    EXPECT_EQ(other.vendor, -1);
}

TEST(PnpIdString, FormatRoundTrips) {
    std::string id = FormatPnpIdString(0x1002, 0x73BF, 0x1002, 0x0E3A, 0xC1);
    EXPECT_EQ(id, "PCI\\VEN_1002&DEV_73BF&SUBSYS_0E3A1002&REV_C1");
    PciIdFields f = ParsePnpIdString(id.c_str());
    EXPECT_EQ(f.vendor, 0x1002);
    EXPECT_EQ(f.device, 0x73BF);
    EXPECT_EQ(f.subsystemVendor(), 0x1002);
    EXPECT_EQ(f.subsystemDevice(), 0x0E3A);
    EXPECT_EQ(f.revision, 0xC1);
    // Out-of-range numbers are masked to their field width.
    EXPECT_EQ(FormatPnpIdString(0x110DE, 0, 0, 0, 0x1A1), "PCI\\VEN_10DE&DEV_0000&SUBSYS_00000000&REV_A1");
}

TEST(VendorClass, FollowsTheTable) {
    EXPECT_EQ(VendorClassOf(-1), kVendorNone);
    EXPECT_EQ(VendorClassOf(0x10DE), kVendorNvidia);
    EXPECT_EQ(VendorClassOf(0x1002), kVendorAmd);
    EXPECT_EQ(VendorClassOf(0x5333), kVendorS3);
    EXPECT_EQ(VendorClassOf(0x8086), kVendorIntel);
    EXPECT_EQ(VendorClassOf(0x1A03), kVendorOther);
    EXPECT_EQ(VendorClassOf(0), kVendorOther);
}

DisplayDeviceRecord Record(const std::string& name, const std::string& text) {
    return DisplayDeviceRecord{name, text, "PCI\\VEN_10DE&DEV_13C0&SUBSYS_00000000&REV_A1", "\\Registry\\Machine\\X"};
}

TEST(AdapterTable, TwoOutputsOfOneAdapterGiveOneRow) {
    AdapterTable t;
    EXPECT_TRUE(t.Add(Record("\\\\.\\DISPLAY1", "NVIDIA GeForce GTX 980")));
    EXPECT_FALSE(t.Add(Record("\\\\.\\DISPLAY2", "NVIDIA GeForce GTX 980")));
    ASSERT_EQ(t.count(), 1);
    EXPECT_STREQ(t.row(0).deviceName, "\\\\.\\DISPLAY1");
    EXPECT_TRUE(t.Add(Record("\\\\.\\DISPLAY3", "Intel(R) HD Graphics 4600")));
    EXPECT_EQ(t.count(), 2);
    // Only the last row added is compared: the same adapter after another
    // one adds a row again.
    EXPECT_TRUE(t.Add(Record("\\\\.\\DISPLAY4", "NVIDIA GeForce GTX 980")));
    EXPECT_EQ(t.count(), 3);
}

TEST(AdapterTable, DescriptionsCompareOnTheFirst127Characters) {
    AdapterTable t;
    std::string a(127, 'x');
    EXPECT_TRUE(t.Add(Record("1", a + "A")));
    EXPECT_FALSE(t.Add(Record("2", a + "B")));  // differs only after 127 characters
    EXPECT_TRUE(t.Add(Record("3", std::string(126, 'x') + "y")));
    // Long texts are cut to their field, terminated.
    EXPECT_EQ(std::string(t.row(0).deviceString).size(), 127u);
}

TEST(AdapterTable, EnumerationStopsAfterIndex24AndAtTheFirstFailure) {
    AdapterTable t;
    int calls = 0;
    EnumerateDisplayDevices(
        [&](int i, DisplayDeviceRecord* d) {
            ++calls;
            *d = Record("D" + std::to_string(i), "Adapter " + std::to_string(i));
            return true;
        },
        &t);
    EXPECT_EQ(calls, 25);
    EXPECT_EQ(t.count(), 25);
    EXPECT_FALSE(t.Append(Record("late", "one too many")));

    AdapterTable u;
    calls = 0;
    EnumerateDisplayDevices(
        [&](int i, DisplayDeviceRecord* d) {
            ++calls;
            if (i == 3) return false;
            *d = Record("D", "Adapter " + std::to_string(i / 2));
            return true;
        },
        &u);
    EXPECT_EQ(calls, 4);
    EXPECT_EQ(u.count(), 2);
}

TEST(AdapterTable, AppendKeepsIdenticalBoards) {
    AdapterTable t;
    EXPECT_TRUE(t.Append(Record("card0", "NVIDIA GeForce RTX 4090")));
    EXPECT_TRUE(t.Append(Record("card1", "NVIDIA GeForce RTX 4090")));
    EXPECT_EQ(t.count(), 2);
}

TEST(CopyFixed, CutsAndTerminates) {
    char buf[5];
    CopyFixed(buf, sizeof buf, "abcdefgh");
    EXPECT_STREQ(buf, "abcd");
    CopyFixed(buf, sizeof buf, nullptr);
    EXPECT_STREQ(buf, "");
}

}  // namespace
}  // namespace ProbeGPU
