#include "monitor/gpu_db.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <utility>

#include "monitor/probe_gpu.h"

namespace ProbeGPU {
namespace {

const GpuDatabaseEntry* Find(int vendorClass, int device) { return DatabaseRow(vendorClass, DatabaseLookup(vendorClass, device)); }

bool HasFullName(int vendorClass, const char* name) {
    int rows = 0;
    const GpuDatabaseEntry* t = DatabaseTable(vendorClass, &rows);
    for (int i = 0; i < rows; ++i)
        if (std::strcmp(t[i].fullName, name) == 0) return true;
    return false;
}

TEST(GpuDatabase, Gtx980RowMatchesTheLayoutExample) {
    const GpuDatabaseEntry* r = Find(1, 0x13C0);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->deviceId, 0x13C0u);
    EXPECT_EQ(r->subId, 0u);
    EXPECT_STREQ(r->codeName, "GM204");
    EXPECT_STREQ(r->shortName, "GTX 980");
    EXPECT_STREQ(r->fullName, "NVIDIA GeForce GTX 980");
    EXPECT_EQ(r->d3dLevel, 110);
    EXPECT_EQ(r->unifiedShaders, 2048);
    EXPECT_EQ(r->vertexUnits, 0);
    EXPECT_EQ(r->pixelUnits, 0);
    EXPECT_EQ(r->textureUnits, 128);
    EXPECT_EQ(r->ropUnits, 64);
    EXPECT_EQ(r->boardPowerW, 165);
}

TEST(GpuDatabase, LookupIsPerVendorAndMissesGiveMinusOne) {
    EXPECT_GE(DatabaseLookup(1, 0x13C0), 0);
    EXPECT_EQ(DatabaseLookup(2, 0x2204), -1);  // an NVIDIA ID in the AMD table
    EXPECT_EQ(DatabaseLookup(1, 0x0001), -1);
    EXPECT_EQ(DatabaseLookup(0, 0x13C0), -1);
    EXPECT_EQ(DatabaseLookup(5, 0x13C0), -1);
    EXPECT_EQ(DatabaseLookup(1, -1), -1);
    EXPECT_EQ(DatabaseLookup(1, 0), -1);  // 0 ends a table; it is never a match
    EXPECT_EQ(DatabaseRow(1, -1), nullptr);
    EXPECT_EQ(DatabaseRow(1, 1 << 20), nullptr);
}

TEST(GpuDatabase, NeverMatchedRowsAreNotFound) {
    // The R9 280X shares 0x6798 with the HD 7970; its own row documents it
    // and is never matched, even by the marker ID itself.
    EXPECT_TRUE(HasFullName(2, "AMD Radeon R9 280X"));
    EXPECT_EQ(DatabaseLookup(2, static_cast<int>(kNeverMatchedId)), -1);
    const GpuDatabaseEntry* shared = Find(2, 0x6798);
    ASSERT_NE(shared, nullptr);
    EXPECT_STREQ(shared->codeName, "Tahiti");
}

TEST(GpuDatabase, TablesAreClosedAndWellFormed) {
    for (int cls = 1; cls <= 4; ++cls) {
        int rows = 0;
        const GpuDatabaseEntry* t = DatabaseTable(cls, &rows);
        ASSERT_NE(t, nullptr) << cls;
        EXPECT_GT(rows, 10) << cls;
        EXPECT_EQ(t[rows].deviceId, 0u) << cls;
        std::set<std::pair<uint32_t, uint32_t>> ids;
        for (int i = 0; i < rows; ++i) {
            EXPECT_NE(t[i].deviceId, 0u);
            // A board row names one product; only S3's product names hold slashes.
            if (cls != 3) {
                EXPECT_EQ(std::strchr(t[i].fullName, '/'), nullptr) << t[i].fullName;
            }
            EXPECT_GT(std::strlen(t[i].fullName), 0u);
            EXPECT_GT(std::strlen(t[i].codeName), 0u);
            EXPECT_GE(t[i].textureUnits, -1);
            EXPECT_GE(t[i].ropUnits, -1);
            EXPECT_GE(t[i].boardPowerW, 0);
            if (t[i].unifiedShaders > 0) {
                EXPECT_EQ(t[i].vertexUnits, 0) << t[i].fullName;
                EXPECT_EQ(t[i].pixelUnits, 0) << t[i].fullName;
            }
            if (t[i].deviceId != kNeverMatchedId) {
                EXPECT_TRUE(ids.insert({t[i].deviceId, t[i].subId}).second) << t[i].fullName;
                // A board row always has its device's own row to fall back on.
                if (t[i].subId != 0) {
                    EXPECT_GE(DatabaseLookup(cls, static_cast<int>(t[i].deviceId)), 0) << t[i].fullName;
                }
            }
        }
    }
    int rows = 0;
    EXPECT_EQ(DatabaseTable(0, &rows), nullptr);
    EXPECT_EQ(rows, 0);
    EXPECT_EQ(DatabaseTable(5, &rows), nullptr);
}

TEST(GpuDatabase, CoversThePartsTheProgramNames) {
    for (const char* n : {"AMD Radeon R9 390X", "AMD Radeon R9 390", "AMD Radeon R9 290X", "AMD Radeon R9 290",
                          "AMD Radeon R9 280X", "AMD Radeon HD 7970", "ATI Radeon HD 6350", "ATI Radeon 7500"})
        EXPECT_TRUE(HasFullName(2, n)) << n;
    EXPECT_TRUE(HasFullName(1, "NVIDIA GeForce 7800 GTX"));
    EXPECT_TRUE(HasFullName(1, "NVIDIA GeForce GTX 980"));
}

TEST(GpuDatabase, CoversTodaysBoards) {
    struct Want {
        int cls;
        int device;
        const char* name;
    };
    const Want wants[] = {
        {1, 0x1E04, "NVIDIA GeForce RTX 2080 Ti"}, {1, 0x2204, "NVIDIA GeForce RTX 3090"},
        {1, 0x2684, "NVIDIA GeForce RTX 4090"},    {1, 0x2B85, "NVIDIA GeForce RTX 5090"},
        {1, 0x20B0, "NVIDIA A100-SXM4-40GB"},      {1, 0x2330, "NVIDIA H100 80GB HBM3"},
        {1, 0x2335, "NVIDIA H200"},                {1, 0x2901, "NVIDIA B200"},
        {2, 0x731F, "AMD Radeon RX 5700 Series"}, {2, 0x73BF, "AMD Radeon RX 6800 Series"},
        {2, 0x744C, "AMD Radeon RX 7900 Series"}, {2, 0x7550, "AMD Radeon RX 9070 Series"},
        // Integrated graphics and laptop parts.
        {2, 0x15BF, "AMD Radeon 700M Series"},     {2, 0x1681, "AMD Radeon 600M Series"},
        {2, 0x164E, "AMD Radeon Graphics (Ryzen 7000)"}, {2, 0x1638, "AMD Radeon Vega Series"},
        {1, 0x28E0, "NVIDIA GeForce RTX 4060 Laptop GPU"}, {1, 0x2860, "NVIDIA GeForce RTX 4070 Laptop GPU"},
        {1, 0x2757, "NVIDIA GeForce RTX 4090 Laptop GPU"}, {1, 0x1F9D, "NVIDIA GeForce GTX 1650 Mobile"},
        {2, 0x740F, "AMD Instinct MI210"},         {2, 0x74A1, "AMD Instinct MI300X"},
        {4, 0x56A0, "Intel Arc A770 Graphics"},    {4, 0xE20B, "Intel Arc B580 Graphics"},
        {3, 0x8A22, "S3 Savage4"},
    };
    for (const Want& w : wants) {
        const GpuDatabaseEntry* r = Find(w.cls, w.device);
        ASSERT_NE(r, nullptr) << w.name;
        EXPECT_STREQ(r->fullName, w.name);
    }
    const GpuDatabaseEntry* h100 = Find(1, 0x2330);
    EXPECT_EQ(h100->unifiedShaders, 16896);
    EXPECT_EQ(h100->ropUnits, -1);  // not published: unknown
    EXPECT_EQ(h100->boardPowerW, 700);
}

// Rows imported from the public PCI id list: every display device of the
// three makers that the list names, one name per device, boards of a shared
// ID by their subsystem.
TEST(GpuDatabase, NamesTheDevicesOfThePciIdList) {
    auto name = [](int cls, int device, int sv = -1, int sd = -1) {
        const GpuDatabaseEntry* r = DatabaseRow(cls, DatabaseLookup(cls, device, sv, sd));
        return r ? std::string(r->fullName) : std::string("(none)");
    };
    EXPECT_EQ(name(1, 0x1140), "NVIDIA GeForce 610M Series");
    EXPECT_EQ(name(1, 0x1140, 0x1025, 0x0773), "NVIDIA GeForce 710M");
    EXPECT_EQ(name(1, 0x1140, 0x1019, 0x999F), "NVIDIA GeForce GT 720M");
    EXPECT_EQ(name(1, 0x0047), "NVIDIA GeForce 6800 GS");
    EXPECT_EQ(name(2, 0x6843), "AMD Radeon HD 7670M");
    EXPECT_EQ(name(2, 0x68E0), "ATI Mobility Radeon HD 5430 Series");
    EXPECT_EQ(name(4, 0x5921), "Intel HD Graphics 620");
    EXPECT_EQ(name(4, 0x46A1), "Intel UHD Graphics (Alder Lake)");
    // Parts newer than the build machines' list, from the newer list kept in data/gpudb/.
    EXPECT_EQ(name(1, 0x2B87), "NVIDIA GeForce RTX 5090 D");
    EXPECT_EQ(name(1, 0x2D19), "NVIDIA GeForce RTX 5060 Mobile");
    EXPECT_EQ(name(2, 0x7590), "AMD Radeon RX 9060 XT");
    EXPECT_EQ(name(2, 0x13C0), "AMD Radeon Graphics (Granite Ridge)");
    EXPECT_EQ(name(4, 0xE212), "Intel Arc Pro B50");
    EXPECT_EQ(name(4, 0xB080), "Intel Arc B390");
    EXPECT_EQ(name(4, 0x6420), "Intel Graphics (Lunar Lake)");
    // Names only: the figures stay unknown rather than guessed.
    const GpuDatabaseEntry* r = DatabaseRow(2, DatabaseLookup(2, 0x6843));
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->unifiedShaders, 0);
    EXPECT_EQ(r->textureUnits, -1);
    EXPECT_EQ(r->ropUnits, -1);
    EXPECT_EQ(r->boardPowerW, 0);
    EXPECT_EQ(r->d3dLevel, 110);  // TeraScale 2, as every row of that architecture
    // The tables now hold the list's GPUs, not a few hundred hand-picked ones.
    int nvidia = 0, amd = 0, intel = 0;
    DatabaseTable(1, &nvidia);
    DatabaseTable(2, &amd);
    DatabaseTable(4, &intel);
    EXPECT_GT(nvidia, 1400);
    EXPECT_GT(amd, 1200);
    EXPECT_GT(intel, 300);
}

TEST(GpuDatabase, NamesOfSeveralProductsGiveWayToTheAdaptersOwn) {
    for (const char* n : {"AMD Radeon RX 6800 Series", "NVIDIA Mobile GPU (GK107M)", "AMD Radeon Graphics (Kaveri)",
                          "Intel Graphics (Lunar Lake)", "Intel Integrated Graphics (Atom Processor D2xxx, N2xxx)"})
        EXPECT_TRUE(NamesSeveralProducts(n)) << n;
    for (const char* n : {"NVIDIA GeForce RTX 4090", "Intel GMA 3100 (G33)", "Intel Iris Plus Graphics G7 (Ice Lake)",
                          "AMD Radeon 610M", "Series", "(GK107M)", ")", ""})
        EXPECT_FALSE(NamesSeveralProducts(n)) << n;
    EXPECT_FALSE(NamesSeveralProducts(nullptr));
    // The chip-only rows the importer writes are all recognised as such.
    for (int cls : {1, 2, 4}) {
        int rows = 0;
        const GpuDatabaseEntry* t = DatabaseTable(cls, &rows);
        for (int i = 0; i < rows; ++i)
            if (std::strstr(t[i].fullName, " GPU (") && std::strncmp(t[i].fullName, "NVIDIA", 6) == 0) {
                EXPECT_TRUE(NamesSeveralProducts(t[i].fullName)) << t[i].fullName;
            }
    }
}

// One device ID, several boards: the subsystem names the board where the
// list knows it, the family row answers for the rest.
TEST(GpuDatabase, BoardsAreToldApartBySubsystem) {
    auto name = [](int cls, int device, int sv, int sd) {
        const GpuDatabaseEntry* r = DatabaseRow(cls, DatabaseLookup(cls, device, sv, sd));
        return r ? std::string(r->fullName) : std::string("(none)");
    };
    EXPECT_EQ(name(2, 0x73BF, 0x1002, 0x0E3A), "AMD Radeon RX 6900 XT");
    EXPECT_EQ(name(2, 0x73BF, 0x1DA2, 0xE437), "AMD Radeon RX 6800");
    EXPECT_EQ(name(2, 0x73BF, 0x1DA2, 0x438E), "AMD Radeon RX 6800 XT");
    EXPECT_EQ(name(2, 0x73BF, 0x1234, 0x5678), "AMD Radeon RX 6800 Series");  // a board the list does not know
    EXPECT_EQ(name(2, 0x73BF, -1, -1), "AMD Radeon RX 6800 Series");
    EXPECT_EQ(name(1, 0x1E30, 0x10DE, 0x129E), "NVIDIA Quadro RTX 8000");
    EXPECT_EQ(name(1, 0x2684, 0x10DE, 0x167C), "NVIDIA GeForce RTX 4090");  // one board per ID: the subsystem changes nothing
    // Another device's board never matches.
    EXPECT_EQ(name(2, 0x73DF, 0x1002, 0x0E3A), "AMD Radeon RX 6700 Series");
    const GpuDatabaseEntry* xt = DatabaseRow(2, DatabaseLookup(2, 0x73BF, 0x1DA2, 0x438E));
    ASSERT_NE(xt, nullptr);
    EXPECT_EQ(xt->unifiedShaders, 4608);
}

TEST(GpuDatabase, PreUnifiedPartsCountVertexAndPixelUnits) {
    const GpuDatabaseEntry* r = Find(1, 0x0091);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->unifiedShaders, 0);
    EXPECT_EQ(r->vertexUnits, 8);
    EXPECT_EQ(r->pixelUnits, 24);
    EXPECT_EQ(r->d3dLevel, 93);
}

TEST(MakerBoards, TwentyOneModelsFoundByTheMakersSubsystemVendor) {
    int count = 0;
    const BoardModel* models = MakerBoardModels(&count);
    EXPECT_EQ(count, 21);
    ASSERT_NE(models, nullptr);
    EXPECT_STREQ(MakerBoardModelName(kMakerPciVendorId, static_cast<int>(models[0].subsystemDeviceId)), models[0].modelName);
    EXPECT_STREQ(MakerBoardModelName(kMakerPciVendorId, 0x0104), "VXA Ardent 980 Triple");
    EXPECT_EQ(MakerBoardModelName(0x1462, 0x0104), nullptr);  // someone else's board
    EXPECT_EQ(MakerBoardModelName(kMakerPciVendorId, 0x7777), nullptr);
    EXPECT_EQ(MakerBoardModelName(kMakerPciVendorId, -1), nullptr);
}

TEST(ShaderCores, VendorCountsBeforeTheDatabase) {
    EXPECT_EQ(ShaderCoreCount(1, 0x13C0, 2048, 0, 1), 2048);
    EXPECT_EQ(ShaderCoreCount(1, 0x13C0, 0, 0, 2000), 2000);
    // AMD: 64 per unit for 0x6700-0x671D (VLIW4), 80 otherwise.
    EXPECT_EQ(ShaderCoreCount(2, 0x6718, 0, 24, 1), 24 * 64);
    EXPECT_EQ(ShaderCoreCount(2, 0x671D, 0, 24, 1), 24 * 64);
    EXPECT_EQ(ShaderCoreCount(2, 0x671E, 0, 20, 1), 20 * 80);
    EXPECT_EQ(ShaderCoreCount(2, 0x6898, 0, 20, 1), 20 * 80);
    EXPECT_EQ(ShaderCoreCount(2, 0x6898, 0, 0, 1600), 1600);
    EXPECT_EQ(ShaderCoreCount(4, 0x56A0, 999, 999, 4096), 4096);  // nobody else's counts apply
}

TEST(Name6798, TheAdapterDescriptionDecides) {
    EXPECT_STREQ(Name6798("AMD Radeon HD 7900 Series"), "AMD Radeon HD 7970");
    EXPECT_STREQ(Name6798("AMD Radeon R9 200 Series"), "AMD Radeon R9 280X");
    EXPECT_STREQ(Name6798(""), "AMD Radeon R9 280X");
    EXPECT_STREQ(Name6798(nullptr), "AMD Radeon R9 280X");
}

}  // namespace
}  // namespace ProbeGPU
