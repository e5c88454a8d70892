#include "capilite/Blob.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <thread>
#include <vector>

#include "tests/PublicTool.h"
#include "tests/capilite/Failure.h"
#include "tests/capilite/Hex.h"

namespace {

CACMPT_BLOB ofSize(std::size_t n) { return CACMPT_BLOB(std::string(n, 'x').data(), n); }

TEST(Blob, CapacityDoublesFromItsFirstSize) {
    const std::size_t cases[][2] = {
        {1, 262144}, {262144, 262144}, {262145, 524288}, {524289, 1048576}, {3000000, 4194304}};
    for (const auto& [size, capacity] : cases) {
        CACMPT_BLOB blob = ofSize(size);
        EXPECT_EQ(blob.size, size);
        EXPECT_EQ(blob.capacity, capacity);
        blob.assign("ab", 2);  // never shrinks
        EXPECT_EQ(blob.capacity, capacity);
        blob.assign(nullptr, 0);
        EXPECT_TRUE(blob.size == 0 && blob.data == nullptr && blob.capacity == 0);
    }
}

TEST(Blob, ContentMayComeFromTheBlobItself) {
    CACMPT_BLOB blob("abcdef", 6);
    blob.assign(blob.data + 2, 3);
    EXPECT_EQ(blob.view(), "cde");
    blob.append(blob.data + 1, 2);
    EXPECT_EQ(blob.view(), "cdede");
    CACMPT_BLOB big = ofSize(262144);
    big.data[262143] = 'e';
    big.append(big.data + 262143, 1);  // moves the content while it is read
    EXPECT_EQ(big.view().substr(262142), "xee");
    CACMPT_BLOB& same = big;
    big = same;
    EXPECT_EQ(big.size, 262145u);
}

TEST(Blob, CopiesAreIndependentAndMovesTakeOver) {
    CACMPT_BLOB a("abc", 3);
    CACMPT_BLOB b = a;
    b.data[0] = 'X';
    EXPECT_EQ(a.view(), "abc");
    const unsigned char* array = a.data;
    CACMPT_BLOB c = std::move(a);
    EXPECT_EQ(c.data, array);
    EXPECT_EQ(a.data, nullptr);
    EXPECT_FALSE(c == b);
    c.data[0] = 'X';
    EXPECT_TRUE(c == b);
}

TEST(Blob, ReservingKeepsTheContent) {
    CACMPT_BLOB blob("abc", 3);
    blob.reserve(300000);
    EXPECT_EQ(blob.view(), "abc");
    EXPECT_EQ(blob.capacity, 524288u);
    EXPECT_THROW(blob.reserve(0x100000000), std::bad_alloc);
    EXPECT_THROW(blob.append("d", 0x100000000), std::bad_alloc);
    EXPECT_THROW(blob.assign("d", 0x100000000), std::bad_alloc);
    EXPECT_EQ(blob.view(), "abc");
}

// More blobs than the list of spare arrays holds, dropped in another order than made, in threads
// that end while the main thread keeps what they gave it.
TEST(Blob, SpareArraysAreNeverShared) {
    std::vector<CACMPT_BLOB> kept(8);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < kept.size(); ++t) {
        threads.emplace_back([&kept, t] {
            for (int round = 0; round < 20; ++round) {
                std::vector<CACMPT_BLOB> blobs(40);
                for (std::size_t i = 0; i < blobs.size(); ++i) {
                    blobs[i].assign(std::to_string(t * 100 + i));
                }
                for (std::size_t i = 0; i < blobs.size(); ++i) {
                    ASSERT_EQ(blobs[i].view(), std::to_string(t * 100 + i));
                }
                std::reverse(blobs.begin(), blobs.end());
                kept[t] = blobs[3];
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    // The blobs had been reversed: the fourth was the 37th.
    for (std::size_t t = 0; t < 8; ++t) EXPECT_EQ(kept[t].view(), std::to_string(t * 100 + 36));
}

TEST(Blob, HexadecimalText) {
    const char* const cases[][2] = {
        {"0a 1B", "0A1B"}, {"0a1", "0A"},       {"zz", ""},           {"", ""},
        {"0 a", ""},       {" \t\r\n0A", "0A"}, {"0A,0B", "0A"},      {"0A0\x8f", "0A"},
        {"\xb0\xb1", ""},  {"0Ag0", "0A"},      {"ffFF00", "FFFF00"}, {"0A 0B\v0C\f", "0A0B0C"},
    };
    for (const auto& [text, bytes] : cases) {
        CACMPT_BLOB blob("old", 3);
        blob.readFromHexString(text);
        EXPECT_EQ(hexOf(blob), bytes) << text;
        EXPECT_GT(blob.capacity, blob.size) << text;
    }
    CACMPT_BLOB all;
    all.resize(256);
    std::iota(all.data, all.data + 256, static_cast<unsigned char>(0));
    EXPECT_EQ(hexOf(all), runTool("od -An -v -tx1 | tr -d ' \\n' | tr a-f A-F", all.view()));
    EXPECT_TRUE(fromHex(hexOf(all)) == all);
}

TEST(Blob, Files) {
    TempFile file;
    for (std::size_t size : {1, 262144, 262145, 700000}) {
        CACMPT_BLOB out = ofSize(size), in("old", 3);
        out.writeToFile(file.path());
        in.readFromFile(file.path());
        EXPECT_TRUE(in == out) << size;
    }
    CACMPT_BLOB in("old", 3);
    TempFile empty;
    in.readFromFile(empty.path());
    EXPECT_EQ(in.size, 0u);
}

TEST(Blob, AnEmptyBlobTouchesNoFile) {
    TempFile file("stays");
    CACMPT_BLOB().writeToFile(file.path());
    EXPECT_EQ(file.content(), "stays");
    const std::string absent = std::string(file.path()) + ".absent";
    CACMPT_BLOB().writeToFile(absent.c_str());
    EXPECT_FALSE(std::filesystem::exists(absent));
}

TEST(Blob, FilesThatCannotBeOpened) {
    CACMPT_BLOB blob("old", 3);
    for (const char* name : {"/nonexistent/file", "/tmp", ""}) {
        const std::string refused = std::string("Asn1Exception couldn't open file ") + name;
        EXPECT_FAILURE(blob.readFromFile(name), refused);
        EXPECT_EQ(blob.size, 0u);
        EXPECT_FAILURE(ofSize(1).writeToFile(name), refused);
    }
}

TEST(Blob, CountingUp) {
    struct {
        const char* before;
        int lowest;
        const char* after;
    } const cases[] = {
        {"FFFF", 0, "0000"},     {"00FF", 0, "0100"}, {"00FF", 1, "0000"}, {"01FE", 1, "01FF"},
        {"FFFFFF", 1, "FF0000"}, {"7F", 0, "80"},     {"", 0, ""},         {"FF", 5, "FF"},
    };
    for (const auto& c : cases) {
        CACMPT_BigInteger number;
        number.readFromHexString(c.before);
        number.increment(c.lowest);
        EXPECT_EQ(hexOf(number), c.after) << c.before << " from " << c.lowest;
    }
    CACMPT_BigInteger n("\x00\xff", 2);
    EXPECT_EQ(hexOf(n++), "00FF");
    EXPECT_EQ(hexOf(++n), "0101");
}

TEST(Blob, AlgorithmRecordsCopyAllParts) {
    CACMPT_PublicKeyInfo key;
    EXPECT_STREQ(key.algorithm, "");
    std::strcpy(key.algorithm, "1.2.3");
    key.parameters.assign("pp", 2);
    key.key.assign("kkk", 3);
    CACMPT_PublicKeyInfo copy = key, other;
    other = copy;
    EXPECT_STREQ(other.algorithm, "1.2.3");
    EXPECT_EQ(other.parameters.view(), "pp");
    EXPECT_EQ(other.key.view(), "kkk");

    CACMPT_AlgorithmIdentifier full;
    std::memset(full.algorithm, '1', sizeof full.algorithm);  // no zero at the end
    CACMPT_AlgorithmIdentifier cut = full;
    EXPECT_EQ(std::strlen(cut.algorithm), 255u);
}

}  // namespace
