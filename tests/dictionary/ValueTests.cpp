// Values: conversion, text form, strings, arrays.
#include "DictionaryFixture.h"

#include <cmath>

using namespace vorn::dictionary;

class Values : public DictionaryTest {
protected:
    Item* item = d->createItem(root, "item", kInt);
};

TEST_F(Values, ConvertToEveryTypeTheyAreAccessibleAs) {
    const struct {
        const char* text;
        ItemType type; // of the value with that text; none: a string that is no number
        int64_t asInt;
        double asFloat;
    } rows[] = {
        {"2.9", kFloat, 2, 2.9},
        {"-0.25", kFloat, 0, -0.25},
        {"9223372036854775808", kFloat, INT64_MAX, 9223372036854775808.0},
        {"-inf", kFloat, INT64_MIN, -INFINITY},
        {"9223372036854775807", kString, INT64_MAX, 9223372036854775807.0},
        {"-1e+99999", kString, INT64_MIN, -INFINITY},
        {"0.001e-400", kString, 0, 0},
        {"1e99999999999", kString, INT64_MAX, INFINITY},
        {"1e-99999999999", kString, 0, 0},
        {"Inf", kString, INT64_MAX, INFINITY},
        {"+5", kString, 5, 5},
        {"+-5", kNone, 0, 0},
        {"1e999x", kNone, 0, 0},
        {"nan(x)", kNone, 0, 0},
        {"True", kString, 1, 1},
        {"FALSE", kString, 0, 0},
        {"", kNone, 0, 0},
        {"12x", kNone, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        row.type == kFloat ? d->setFloat64(item, std::strtod(row.text, nullptr))
                           : d->setString(item, row.text);
        EXPECT_EQ(d->isAccessibleAs(kInt, item), row.type != kNone);
        EXPECT_TRUE(d->isAccessibleAs(kString, item) && !d->isAccessibleAs(kDict, item));
        EXPECT_EQ(d->getAsInt64(item), row.asInt);
        EXPECT_EQ(d->getAsFloat64(item), row.asFloat);
        EXPECT_EQ(d->getAsBool(item), row.asFloat != 0);
    }
}

TEST_F(Values, TextIsTheShortestThatReadsBackAndTellsFloatsFromIntegers) {
    const std::pair<double, const char*> rows[] = {
        {1.0, "1.0"},
        {0.1, "0.1"},
        {-0.0, "-0.0"},
        {-12.5, "-12.5"},
        {INFINITY, "inf"},
        {-INFINITY, "-inf"},
        {std::nan(""), "nan"},
        {5e-324, "5e-324"},
        {0.1 + 0.2, "0.30000000000000004"},
        {1e300, "1e+300"},
        {9007199254740993.0, "9007199254740992.0"},
    };
    for (const auto& [value, expected] : rows) {
        d->setFloat64(item, value);
        EXPECT_EQ(text(item), expected);
    }
    d->setString(item, "-nan");
    EXPECT_TRUE(std::isnan(d->getAsFloat64(item)) && d->getAsInt64(item) == 0);
}

TEST_F(Values, AStringIsTheItemsOwnCopyAndMayBeItsOwnSource) {
    for (const size_t length : {3, 7, 8, 15, 16, 100, 300000}) {
        const std::string value = "\xE9" + std::string(length - 1, 'a');
        d->setString(item, value.c_str());
        d->setString(item, d->getStringBuffer(item));
        EXPECT_EQ(d->getStringBuffer(item), value);
        d->setString(item, d->getStringBuffer(item) + length / 2);
        EXPECT_EQ(text(item), value.substr(length / 2));
    }
    const std::string one(40, '1'), two(40, '2');
    const char* strings[] = {one.c_str(), two.c_str(), nullptr};
    d->setStringArray(item, strings, 3);
    EXPECT_STREQ(d->getStringBufferAt(item, 2), "");
    const char* swapped[] = {d->getStringBufferAt(item, 1), d->getStringBufferAt(item, 0)};
    d->setStringArray(item, swapped, 2);
    d->setStringArray(d->getItemAtMutable(item, 1), swapped + 1, 0);
    const char* own = d->getStringBufferAt(item, 0);
    d->setStringArray(d->getItemAtMutable(item, 0), &own, 1);
    EXPECT_EQ(outline(item), "{0:{0:'" + two + "'} 1:{}}");
}

TEST_F(Values, AnArrayKnowsItsElementsAndPrefersTheTypeThatHoldsThemAll) {
    d->deleteChildren(root);
    EXPECT_FALSE(d->isAccessibleAsArray(root) || d->isAccessibleAsArrayOf(kInt, root));
    d->setBoolAt(root, 0, true);
    d->setFloat64At(root, 1, 2.5);
    EXPECT_EQ(d->getPreferredArrayType(root), kFloat);
    for (const int64_t value : {(int64_t{1} << 53) + 1, INT64_MAX}) { // no float has them
        d->setInt64At(root, 2, value);
        EXPECT_EQ(d->getPreferredArrayType(root), kString);
    }
    d->destroyItem(d->getItemAtMutable(root, 2));
    EXPECT_EQ(d->getArrayLength(root), 2u);
    d->createItem(root, "02", kInt);
    EXPECT_EQ(d->getArrayLength(root), 0u);
    const int64_t one = 1;
    d->setInt64Array(root, &one, 1); // drops the other
    EXPECT_EQ(at("1"), nullptr);
}

TEST_F(Values, ElementsConvertAndPlacesWithoutOneAreLeftAlone) {
    d->setFloat64At(item, 0, 2.5); // the value becomes an array
    d->setStringAt(item, 2, "3000000000");
    const auto read = [this](auto slot, auto place) {
        std::vector<decltype(place)> places(4, place);
        slot(item, places.data(), 3);
        return places;
    };
    EXPECT_EQ(read(d->getAsInt64Array, int64_t{9}), (std::vector<int64_t>{2, 9, 3000000000, 9}));
    EXPECT_EQ(read(d->getAsIntArray, 9), (std::vector<int>{2, 9, INT32_MAX, 9}));
    EXPECT_EQ(read(d->getAsFloat64Array, 9.0), (std::vector<double>{2.5, 9, 3e9, 9}));
    EXPECT_EQ(read(d->getAsFloatArray, 9.0f), (std::vector<float>{2.5, 9, 3e9, 9}));
    const int64_t one = 1;
    d->setInt64Array(item, &one, SIZE_MAX);
    EXPECT_EQ(outline(item), "{0:2.5 2:'3000000000'}") << "no array can have that length";
}
