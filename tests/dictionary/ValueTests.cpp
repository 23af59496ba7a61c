// Values: conversion, text form, strings, arrays.
#include "DictionaryFixture.h"

#include <cmath>

using namespace vorn::dictionary;

class Values : public DictionaryTest {
protected:
    Item* item = d->createItem(root, "item", kInt);
};

TEST_F(Values, AreTextThatReadsBackAndConvertToEveryTypeTheyAreAccessibleAs) {
    const struct {
        const char* text;
        ItemType type; // of the value with that text; none: a string that is no number
        int64_t asInt;
        double asFloat;
    } rows[] = {
        {"-2.9", kFloat, -2, -2.9},
        {"0.30000000000000004", kFloat, 0, 0.1 + 0.2},
        {"1e+300", kFloat, INT64_MAX, 1e300},
        {"9007199254740992.0", kFloat, 9007199254740992, 9007199254740993.0},
        {"9223372036854775807", kString, INT64_MAX, 9223372036854775807.0},
        {"-1e+99999", kString, INT64_MIN, -INFINITY},
        {"0.001e-400", kString, 0, 0},
        {"1e99999999999", kString, INT64_MAX, INFINITY},
        {"1e-99999999999", kString, 0, 0},
        {"+5", kString, 5, 5},
        {"+-5", kNone, 0, 0},
        {"True", kString, 1, 1},
        {"1e999x", kNone, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        row.type == kFloat ? d->setFloat64(item, row.asFloat) : d->setString(item, row.text);
        EXPECT_EQ(textOf(*d, item), row.text);
        EXPECT_EQ(d->isAccessibleAs(kInt, item), row.type != kNone);
        EXPECT_TRUE(d->isAccessibleAs(kString, item) && !d->isAccessibleAs(kDict, item));
        EXPECT_EQ(d->getAsInt64(item), row.asInt);
        EXPECT_EQ(d->getAsFloat64(item), row.asFloat);
        EXPECT_EQ(d->getAsBool(item), row.asFloat != 0);
    }
}

TEST_F(Values, AStringIsTheItemsOwnCopyAndMayBeItsOwnSource) {
    for (const size_t length : {3, 7, 8, 15, 16, 100, 300000}) {
        const std::string value = "\xE9" + std::string(length - 1, 'a');
        d->setString(item, value.c_str());
        d->setString(item, d->getStringBuffer(item));
        EXPECT_EQ(d->getStringBuffer(item), value);
        d->setString(item, d->getStringBuffer(item) + length / 2);
        EXPECT_EQ(textOf(*d, item), value.substr(length / 2));
    }
    const std::string one(40, '1'), two(40, '2');
    const char* strings[] = {one.c_str(), two.c_str()};
    d->setStringArray(item, strings, 2);
    const char* swapped[] = {d->getStringBufferAt(item, 1), d->getStringBufferAt(item, 0)};
    d->setStringArray(item, swapped, 2);
    const char* own = d->getStringBufferAt(item, 0);
    d->setStringArray(d->getItemAtMutable(item, 0), &own, 1);
    EXPECT_EQ(outlineOf(*d, item), "{0:{0:'" + two + "'} 1:'" + one + "'}");
}

TEST_F(Values, AnArrayKnowsItsElementsAndPrefersTheTypeThatHoldsThemAll) {
    for (size_t i = 12; i-- > 0;) {
        d->setBoolAt(item, i, true); // the value becomes an array
    }
    EXPECT_EQ(d->getArrayLength(item), 12u);
    d->setFloat64At(item, 1, 2.5);
    EXPECT_EQ(d->getPreferredArrayType(item), kFloat);
    for (const int64_t value : {(int64_t{1} << 53) + 1, INT64_MAX}) { // no float has them
        d->setInt64At(item, 2, value);
        EXPECT_EQ(d->getPreferredArrayType(item), kString);
    }
    d->destroyItem(d->getItemAtMutable(item, 1));
    EXPECT_EQ(d->getArrayLength(item), 0u);
    float places[] = {9, 9, 9, 9};
    d->getAsFloatArray(item, places, 3);
    EXPECT_EQ(places[0] + places[1] + places[3], 1 + 9 + 9) << "places without an element stay";
}
