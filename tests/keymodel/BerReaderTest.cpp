// SPDX-License-Identifier: Apache-2.0
// Tests of the element reader: bytes in, elements out, above all where no length is given.
#include "keymodel/BerReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace Vestrel::Tests {

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes copied(ByteSpan bytes) {
    return {bytes.begin(), bytes.end()};
}

struct Taken {
    std::uint8_t tag;
    Bytes content;
    Bytes encoding;
    bool isAtEnd;
};

// The first element of the bytes, whatever it is.
std::optional<Taken> first(const Bytes& bytes) {
    BerReader reader{ByteSpan(bytes)};
    BerElement element;
    if (!reader.any(element)) {
        EXPECT_EQ(element.tag, 0) << "the output stays as it was";
        EXPECT_TRUE(element.encoding.empty());
        EXPECT_EQ(reader.atEnd(), bytes.empty()) << "the cursor stays where it was";
        return std::nullopt;
    }
    return Taken{element.tag, copied(element.content), copied(element.encoding), reader.atEnd()};
}

Bytes contentOf(const Bytes& bytes) {
    const auto taken = first(bytes);
    EXPECT_TRUE(taken);
    return taken ? taken->content : Bytes{};
}

// An element without a length around these bytes, with its end marker.
Bytes indefinite(const Bytes& inside) {
    Bytes whole(2 + inside.size() + 2);
    whole[0] = 0x30;
    whole[1] = 0x80;
    std::ranges::copy(inside, whole.begin() + 2);
    return whole;
}

TEST(BerReader, TakesLengthsOfOneTwoAndThreeBytes) {
    EXPECT_EQ(contentOf({0x04, 0x02, 0xaa, 0xbb}), (Bytes{0xaa, 0xbb}));
    EXPECT_EQ(contentOf({0x04, 0x81, 0x01, 0xaa}), Bytes{0xaa}) << "not the shortest";
    EXPECT_EQ(contentOf({0x04, 0x81, 0x00}), Bytes{}) << "nothing follows";
    EXPECT_EQ(contentOf({0x04, 0x82, 0x00, 0x01, 0xaa}), Bytes{0xaa});
    Bytes longer(4 + 0x102, 0xcc);
    std::ranges::copy(Bytes{0x04, 0x82, 0x01, 0x02}, longer.begin());
    EXPECT_EQ(contentOf(longer).size(), 0x102U);
    EXPECT_FALSE(first({0x04, 0x83, 0x00, 0x00, 0x01, 0xaa})) << "three bytes of length";
}

TEST(BerReader, RefusesLengthsThatAreCutOrPointBeyondTheBytes) {
    for (const Bytes& bytes :
         {Bytes{}, Bytes{0x04}, Bytes{0x04, 0x01}, Bytes{0x04, 0x81}, Bytes{0x04, 0x82, 0x00},
          Bytes{0x04, 0x82, 0x00, 0x01}, Bytes{0x04, 0x81, 0x02, 0xaa}}) {
        EXPECT_FALSE(first(bytes)) << bytes.size();
    }
}

TEST(BerReader, RefusesHighTagNumbersButNotInsideOfWhatHasNoLength) {
    EXPECT_FALSE(first({0x1f, 0x01, 0x00}));
    EXPECT_FALSE(first({0x3f, 0x01, 0x00}));
    EXPECT_EQ(contentOf(indefinite({0x1f, 0x05, 0x01, 0xaa})).size(), 6U);
    EXPECT_EQ(contentOf(indefinite({0x1f, 0x85, 0x86, 0x07, 0x01, 0xaa})).size(), 8U);
    EXPECT_FALSE(first({0x30, 0x80, 0x1f, 0x85})) << "the number is cut";
    EXPECT_FALSE(first({0x30, 0x80, 0x1f, 0x05})) << "the length is missing";
    EXPECT_FALSE(first({0x30, 0x80, 0x1f, 0x85, 0x00}));
}

TEST(BerReader, FindsTheEndOfWhatHasNoLength) {
    const auto empty = first(indefinite({}));
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->content, (Bytes{0x00, 0x00})) << "with its end marker";
    EXPECT_TRUE(empty->isAtEnd);
    Bytes followed = indefinite({0x04, 0x01, 0xaa});
    followed.push_back(0x05);
    const auto taken = first(followed);
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->tag, 0x30);
    EXPECT_EQ(taken->content, (Bytes{0x04, 0x01, 0xaa, 0x00, 0x00}));
    EXPECT_EQ(taken->encoding.size(), 7U);
    EXPECT_FALSE(taken->isAtEnd);
}

TEST(BerReader, TakesNoEndMarkerInsideOfContentForTheEnd) {
    EXPECT_EQ(contentOf(indefinite({0x04, 0x02, 0x00, 0x00})),
              (Bytes{0x04, 0x02, 0x00, 0x00, 0x00, 0x00}));
}

TEST(BerReader, FindsTheEndBehindNestedElementsWithoutALength) {
    const Bytes inner = indefinite({0x04, 0x01, 0xaa});
    EXPECT_EQ(contentOf(indefinite(inner)).size(), inner.size() + 2);
    EXPECT_EQ(contentOf(indefinite(indefinite(inner))).size(), inner.size() + 6);
    Bytes two = inner;
    two.insert(two.end(), inner.begin(), inner.end());
    EXPECT_EQ(contentOf(indefinite(two)).size(), 2 * inner.size() + 2);
}

TEST(BerReader, TakesLengthsOfUpToSevenBytesInsideOfWhatHasNone) {
    EXPECT_EQ(contentOf(indefinite({0x04, 0x87, 0, 0, 0, 0, 0, 0, 1, 0xaa})).size(), 12U);
    EXPECT_FALSE(first(indefinite({0x04, 0x88, 0, 0, 0, 0, 0, 0, 0, 1, 0xaa})));
}

TEST(BerReader, RefusesWhatHasNoLengthAndNoEnd) {
    for (const Bytes& bytes :
         {Bytes{0x30, 0x80}, Bytes{0x30, 0x80, 0x00}, Bytes{0x30, 0x80, 0x04, 0x00},
          Bytes{0x30, 0x80, 0x04, 0x00, 0x00}, Bytes{0x30, 0x80, 0x30, 0x80, 0x00, 0x00},
          Bytes{0x30, 0x80, 0x04, 0x02, 0x00, 0x00}, Bytes{0x30, 0x80, 0x00, 0x01},
          Bytes{0x30, 0x80, 0x04, 0x05, 0x00, 0x00, 0x00}}) {
        EXPECT_FALSE(first(bytes)) << bytes.size();
    }
}

TEST(BerReader, NeedsALengthForWhatIsNotConstructed) {
    EXPECT_FALSE(first({0x04, 0x80, 0x00, 0x00}));
    EXPECT_FALSE(first(indefinite({0x04, 0x80, 0x00, 0x00})));
}

TEST(BerReader, EntersAContainerWithoutALengthUpToItsEndMarker) {
    const Bytes bytes = indefinite({0x04, 0x01, 0xaa});
    BerReader reader{ByteSpan(bytes)};
    BerReader inside;
    ASSERT_TRUE(reader.enter(Ber::sequence, inside));
    EXPECT_TRUE(reader.atEnd());
    BerElement element;
    ASSERT_TRUE(inside.take(Ber::octetString, element));
    EXPECT_EQ(copied(element.content), Bytes{0xaa});
    EXPECT_TRUE(inside.atEnd());
}

TEST(BerReader, MatchesAContainerWhetherItIsMarkedAsConstructedOrNot) {
    for (const Bytes& bytes : {Bytes{0x30, 0x00}, Bytes{0x10, 0x00}}) {
        EXPECT_TRUE(BerReader{ByteSpan(bytes)}.nextIs(Ber::sequence));
    }
    const Bytes constructed{0x24, 0x00};
    EXPECT_FALSE(BerReader{ByteSpan(constructed)}.nextIs(Ber::octetString));
    EXPECT_FALSE(BerReader{ByteSpan(constructed)}.nextIs(Ber::sequence));
    EXPECT_FALSE(BerReader().nextIs(Ber::sequence));
}

TEST(BerReader, SkipsWhatIsThereAndRefusesOnlyWhatIsMalformed) {
    const Bytes bytes{0x01, 0x01, 0xff};
    BerReader reader{ByteSpan(bytes)};
    EXPECT_TRUE(reader.skipOptional(Ber::integer));
    EXPECT_FALSE(reader.atEnd());
    EXPECT_TRUE(reader.skipOptional(Ber::boolean));
    EXPECT_TRUE(reader.atEnd());
    EXPECT_TRUE(reader.skipOptional(Ber::boolean));
    const Bytes cut{0x01, 0x02, 0xff};
    BerReader broken{ByteSpan(cut)};
    EXPECT_FALSE(broken.skipOptional(Ber::boolean));
    EXPECT_FALSE(broken.atEnd());
}

} // namespace

} // namespace Vestrel::Tests
