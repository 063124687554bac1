// Files cut short or changed anywhere: a clear message or a valid reading, never anything else.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <limits>

#include "formats/mtx/mtx_reading.h"
#include "support/mtx_builder.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

constexpr MtxLayout allLayouts[] = {MtxLayout::tagged, MtxLayout::bare, MtxLayout::record};

MtxContents validContents(MtxLayout layout) {
    MtxContents contents = smallMtxContents(3, {3, 2, 6}, {4, 4, 8});
    if (layout != MtxLayout::record) {
        contents.rows[1].dense = true;
        contents.rows[1].value.assign(128, 0.25F);
    }
    return contents;
}

// One file that is written again and again in place, which is much quicker than a new file for every damage.
class RewrittenFile {
public:
    explicit RewrittenFile(const std::string& name)
        : handle_(::open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)) {}
    ~RewrittenFile() { ::close(handle_); }
    RewrittenFile(const RewrittenFile&) = delete;
    RewrittenFile& operator=(const RewrittenFile&) = delete;

    void write(const std::vector<unsigned char>& bytes) {
        ASSERT_EQ(::pwrite(handle_, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        if (bytes.size() != length_) {
            ASSERT_EQ(::ftruncate(handle_, static_cast<off_t>(bytes.size())), 0);
            length_ = bytes.size();
        }
    }

private:
    int handle_;
    std::size_t length_ = 0;
};

void expectOneClearLine(const std::string& message, const std::string& name) {
    EXPECT_EQ(message.find(name + ": byte "), 0U) << message;
    EXPECT_NE(message.find(": expected "), std::string::npos) << message;
    EXPECT_NE(message.find(", found "), std::string::npos) << message;
    EXPECT_EQ(message.find('\n'), std::string::npos) << message;
}

// What a run may rely on once everything has been read.
void expectUsable(MtxReading& reading) {
    const std::vector<std::int64_t>& offset = reading.rowOffset;
    ASSERT_EQ(offset.front(), 1);
    for (std::size_t r = 1; r < offset.size(); ++r) {
        ASSERT_GE(offset[r], offset[r - 1]);
    }
    for (std::size_t r = 0; r + 1 < offset.size(); ++r) {
        for (const std::int32_t index : reading.rawRow(0, r).coefIndex) {
            ASSERT_GE(index, 1);
            ASSERT_LE(index, reading.header().nPadTotal());
        }
    }
    ASSERT_GE(reading.mesh.npx, reading.mesh.nx);
    ASSERT_GE(reading.mesh.npy, reading.mesh.ny);
    ASSERT_EQ(reading.header().nPadded(), std::int64_t{reading.mesh.npx} * reading.mesh.npy * reading.mesh.npz);
}

class MtxDamageTest : public testing::TestWithParam<MtxLayout> {
protected:
    testing_support::TemporaryFolder folder;
    const std::string name = folder.file("damaged.mtx");
    RewrittenFile damaged{name};

    // True when the file could be read; otherwise it must have given one clear line.
    bool readsOrReports(const std::vector<unsigned char>& bytes) {
        damaged.write(bytes);
        MtxReading reading;
        const std::string message = runErrorOf([&] {
            reading.readFiles({name});
            reading.load();
        });
        if (!message.empty()) {
            expectOneClearLine(message, name);
            return false;
        }
        expectUsable(reading);
        return true;
    }

    std::string messageAfter(const MtxContents& contents, MtxLayout layout) {
        damaged.write(buildMtx(contents, layout).bytes);
        MtxReading reading;
        return runErrorOf([&] {
            reading.readFiles({name});
            reading.load();
        });
    }
};

INSTANTIATE_TEST_SUITE_P(layouts, MtxDamageTest, testing::ValuesIn(allLayouts));

TEST_P(MtxDamageTest, theUndamagedFileReads) {
    EXPECT_TRUE(readsOrReports(buildMtx(validContents(GetParam()), GetParam()).bytes));
}

TEST_P(MtxDamageTest, anEndAnywhereIsReported) {
    const MtxBytes file = buildMtx(validContents(GetParam()), GetParam());
    for (std::size_t length = 0; length < file.bytes.size(); ++length) {
        const auto end = file.bytes.begin() + static_cast<std::ptrdiff_t>(length);
        EXPECT_FALSE(readsOrReports({file.bytes.begin(), end})) << "cut to " << length << " bytes";
    }
}

TEST_P(MtxDamageTest, anyByteMayBeWrong) {
    const MtxBytes file = buildMtx(validContents(GetParam()), GetParam());
    int refused = 0;
    for (std::size_t position = 0; position < file.bytes.size(); ++position) {
        for (const unsigned change : {1U, 2U, 4U, 8U, 16U, 32U, 64U, 128U, 255U}) {
            MtxBytes changed = file;
            changed.bytes[position] = static_cast<unsigned char>(changed.bytes[position] ^ change);
            SCOPED_TRACE("byte " + std::to_string(position) + " changed by " + std::to_string(change));
            refused += readsOrReports(changed.bytes) ? 0 : 1;
        }
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(refused, 100);
}

TEST_P(MtxDamageTest, everyCountWithExtremeValues) {
    const MtxBytes file = buildMtx(validContents(GetParam()), GetParam());
    std::vector<std::size_t> counts{file.places.tapCount};
    for (std::size_t k = 0; k < 12; k += 4) {
        counts.push_back(file.places.meshCounts + k);
        counts.push_back(file.places.paddedCounts + k);
    }
    counts.push_back(GetParam() == MtxLayout::tagged ? 12 : 4);
    for (const std::size_t position : counts) {
        for (const std::int32_t value : {0, -1, std::numeric_limits<std::int32_t>::min(), 1 << 20, 1 << 30,
                                         std::numeric_limits<std::int32_t>::max()}) {
            MtxBytes changed = file;
            std::memcpy(changed.bytes.data() + position, &value, sizeof value);
            EXPECT_FALSE(readsOrReports(changed.bytes)) << position << ' ' << value;
        }
    }
}

TEST_P(MtxDamageTest, indicesOutsideThePaddedArrayAreReportedWithTheirByte) {
    const MtxBytes file = buildMtx(validContents(GetParam()), GetParam());
    const std::size_t position = file.places.rowCount[2] + 8;  // the second index of the third row
    for (const std::int32_t index : {0, -1, 129, std::numeric_limits<std::int32_t>::min()}) {
        MtxBytes changed = file;
        std::memcpy(changed.bytes.data() + position, &index, sizeof index);
        damaged.write(changed.bytes);
        MtxReading reading;
        EXPECT_EQ(runErrorOf([&] {
                      reading.readFiles({name});
                      reading.load();
                  }),
                  name + ": byte " + std::to_string(position) +
                      ": expected a coefficient index within 1 to 128, found " + std::to_string(index));
    }
}

TEST_P(MtxDamageTest, thePaddedMeshMustHoldTheMesh) {
    MtxContents contents = validContents(GetParam());
    contents.npy = 2;
    EXPECT_NE(messageAfter(contents, GetParam()).find("expected npy of 3 or more, found 2"), std::string::npos);
    contents = validContents(GetParam());
    contents.npx = 1;
    EXPECT_NE(messageAfter(contents, GetParam()).find("expected npx of 2 or more, found 1"), std::string::npos);
}

TEST_P(MtxDamageTest, extentsThatAreNoPowersOfTwoAreRead) {
    EXPECT_EQ(messageAfter(smallMtxContents(3, {3, 3, 3}, {3, 3, 3}), GetParam()), "");
    EXPECT_EQ(messageAfter(smallMtxContents(3, {3, 5, 9}, {7, 6, 12}), GetParam()), "");
}

TEST_P(MtxDamageTest, aPaddedMeshFarBeyondTheMeshIsAbsurd) {
    MtxContents contents = validContents(GetParam());
    contents.npx = contents.npy = contents.npz = 1024;
    EXPECT_NE(messageAfter(contents, GetParam()).find("found 1024 x 1024 x 1024"), std::string::npos);
}

// The work arrays of the transform would take gigabytes for a file of some hundred bytes.
TEST_P(MtxDamageTest, oneExtentFarBeyondTheMeshIsAbsurd) {
    MtxContents contents = smallMtxContents(3, {1, 1, 1}, {1, 1, 1});
    for (auto& row : contents.rows) {
        row.index.assign(row.index.size(), 1);
    }
    contents.npy = 1 << 22;
    EXPECT_NE(messageAfter(contents, GetParam()).find("expected npy of at most 1024, found 4194304"),
              std::string::npos);
    contents.npy = 1024;
    EXPECT_EQ(messageAfter(contents, GetParam()), "");
}

TEST_P(MtxDamageTest, filterAndNodesMustBeFinite) {
    for (const double bad : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity()}) {
        MtxContents contents = validContents(GetParam());
        contents.coefLow[2] = static_cast<float>(bad);
        EXPECT_NE(messageAfter(contents, GetParam()).find("expected the low-pass filter to be finite"),
                  std::string::npos);
        for (auto axis : {&MtxContents::yNode, &MtxContents::xNode, &MtxContents::zNode}) {
            contents = validContents(GetParam());
            (contents.*axis).back() = bad;
            const std::string message = messageAfter(contents, GetParam());
            EXPECT_NE(message.find("nodes to be finite"), std::string::npos) << message;
        }
    }
}

TEST(MtxSecondFile, anyByteOfItMayBeWrong) {
    const testing_support::TemporaryFolder folder;
    const std::string first = folder.file("first.mtx");
    const std::string second = folder.file("second.mtx");
    writeMtx(first, validContents(MtxLayout::tagged), MtxLayout::tagged);
    const MtxBytes file = buildMtx(validContents(MtxLayout::tagged), MtxLayout::tagged);
    RewrittenFile damaged(second);
    int mismatches = 0;
    for (std::size_t position = 0; position < file.bytes.size(); ++position) {
        for (const unsigned change : {1U, 128U, 255U}) {
            MtxBytes changed = file;
            changed.bytes[position] = static_cast<unsigned char>(changed.bytes[position] ^ change);
            damaged.write(changed.bytes);
            MtxReading reading(2);
            try {
                reading.readFiles({first, second});
                reading.load();
                expectUsable(reading);
            } catch (const MtxMismatch&) {
                ++mismatches;
            } catch (const RunError& error) {
                expectOneClearLine(error.what(), second);
            }
        }
    }
    EXPECT_GT(mismatches, 3 * 4 * 7);  // number of data, mesh, padded mesh, and filter length
}

// No file has a table of directions for each station, whatever its direction flag says: what stands in the position of
// the mesh is the mesh.
TEST(MtxDirections, ABlockForEachStationIsTakenForTheMesh) {
    for (const std::int32_t idir : {-1, 0, 1, 2}) {
        MtxContents contents = validContents(MtxLayout::tagged);
        contents.dataType = 1;
        contents.idir = idir;
        MtxBytes file = buildMtx(contents, MtxLayout::tagged);
        std::vector<unsigned char> block(contents.stations.size() * 2 * sizeof(float));
        for (std::size_t station = 0; station < contents.stations.size(); ++station) {
            const std::array<float, 2> angles{60.0F, 10.0F};
            std::memcpy(block.data() + station * sizeof angles, angles.data(), sizeof angles);
        }
        const auto position = static_cast<std::ptrdiff_t>(file.places.meshCounts);
        file.bytes.insert(file.bytes.begin() + position, block.begin(), block.end());
        testing_support::TemporaryFolder folder;
        const std::string name = folder.file("directions.mtx");
        writeFileBytes(name, file.bytes);
        MtxReading reading;
        const std::string message = runErrorOf([&] { reading.readFiles({name}); });
        expectOneClearLine(message, name);
        EXPECT_EQ(message.find(name + ": byte " + std::to_string(position) + ": "), 0U) << message;
        // 60.0 and 10.0 read as whole numbers.
        EXPECT_NE(message.find("1114636288"), std::string::npos) << message;
    }
}

}  // namespace
}  // namespace voxlith
