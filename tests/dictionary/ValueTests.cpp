// Values: conversion, text form, strings, arrays.
#include "DictionaryFixture.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <tuple>

using namespace vorn::dictionary;

class Values : public DictionaryTest {
protected:
    void SetUp() override {
        DictionaryTest::SetUp();
        item = d->createItem(root, "item", kInt);
    }
    Item* item = nullptr;
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
        {"1e999", kString, INT64_MAX, INFINITY},
        {"-1e99999", kString, INT64_MIN, -INFINITY},
        {"1e-99999", kString, 0, 0},
        {"0.001e-400", kString, 0, 0},
        {"1e99999999999", kString, INT64_MAX, INFINITY},
        {"-1e+999", kString, INT64_MIN, -INFINITY},
        {"1e-99999999999", kString, 0, 0},
        {"Inf", kString, INT64_MAX, INFINITY},
        {"+5", kString, 5, 5},
        {"+-5", kNone, 0, 0},
        {"1e999x", kNone, 0, 0},
        {"nan(x)", kNone, 0, 0},
        {"true", kString, 1, 1},
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
    EXPECT_TRUE(d->isAccessibleAs(kDict, root) && !d->isAccessibleAs(kString, root));
    EXPECT_FALSE(d->isAccessibleAs(kNone, root) || d->isAccessibleAs(kNone, item));
    d->setString(item, "-nan");
    EXPECT_TRUE(std::isnan(d->getAsFloat64(item)));
}

TEST_F(Values, TextIsTheShortestThatReadsBackAndTellsFloatsFromIntegers) {
    const auto textOf = [&](double value) { return d->setFloat64(item, value), text(item); };
    EXPECT_EQ(textOf(1.0) + textOf(0.1) + textOf(-0.0) + textOf(-12.5), "1.00.1-0.0-12.5");
    EXPECT_EQ(textOf(INFINITY) + textOf(-INFINITY) + textOf(std::nan("")), "inf-infnan");
    d->setFloat64(item, std::nan(""));
    EXPECT_EQ(d->getAsInt64(item), 0);
    EXPECT_EQ(textOf(0.1 + 0.2) + " " + textOf(5e-324), "0.30000000000000004 5e-324");
    for (const double value : {1e300, 1e15, 1e16, 9007199254740993.0, 123456789012345680.0}) {
        EXPECT_EQ(std::strtod(textOf(value).c_str(), nullptr), value);
        EXPECT_NE(text(item).find_first_of(".e"), std::string::npos) << value;
    }
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

TEST_F(Values, AnArrayIsADictionaryOfTheNamesZeroToLengthMinusOne) {
    const std::tuple<const char*, const char*, size_t> rows[] = {
        {"1", "0", 2}, {"0", "0", 1}, {"0", "2", 0}, {"1", "1", 0}, {"0", "x", 0}, {"0", "01", 0}};
    for (const auto& [first, second, length] : rows) {
        d->deleteChildren(root);
        d->createItem(root, first, kInt);
        d->createItem(root, second, kInt);
        EXPECT_EQ(d->getArrayLength(root), length) << outline(root);
        EXPECT_EQ(d->isAccessibleAsArrayOf(kString, root), length > 0) << outline(root);
        EXPECT_EQ(d->getPreferredArrayType(root), length ? kInt : kNone) << outline(root);
    }
    item = d->createItem(root, "item", kDict);
    d->setBoolAt(item, 0, true);
    d->setFloat64At(item, 1, 2.5);
    EXPECT_EQ(d->getPreferredArrayType(item), kFloat);
    for (const int64_t value : {(int64_t{1} << 53) + 1, INT64_MAX}) { // no float has them
        d->setInt64At(item, 2, value);
        EXPECT_EQ(d->getPreferredArrayType(item), kString);
    }
    d->setStringAt(item, 0, "no number");
    EXPECT_FALSE(d->isAccessibleAsArrayOf(kInt, item));
    d->createItem(item, "1", kDict);
    EXPECT_EQ(d->getPreferredArrayType(item), kNone) << "values and dictionaries";
    d->setStringArray(item, nullptr, 2);
    d->createItem(item, "0", kDict);
    EXPECT_EQ(d->getPreferredArrayType(item), kDict);
}

TEST_F(Values, ElementsConvertAndPlacesWithoutOneAreLeftAlone) {
    const auto read = [this](auto place, auto slot) {
        decltype(place) places[] = {place, place, place, place, place};
        slot(item, places, 4);
        std::ostringstream text;
        std::for_each(places, places + 5, [&](auto value) { text << value << ' '; });
        return text.str();
    };
    d->setFloat64At(item, 0, 2.5); // the value becomes an array
    d->setStringAt(item, 1, "12");
    d->setInt64At(item, 3, 3000000000);
    EXPECT_EQ(read(int64_t{9}, d->getAsInt64Array), "2 12 9 3000000000 9 ");
    EXPECT_EQ(read(9, d->getAsIntArray), "2 12 9 2147483647 9 ");
    EXPECT_EQ(read(9.0, d->getAsFloat64Array), "2.5 12 9 3e+09 9 ");
    EXPECT_EQ(read(9.0f, d->getAsFloatArray), "2.5 12 9 3e+09 9 ");
    EXPECT_EQ(read(false, d->getAsBoolArray), "1 1 0 1 0 ");
    const char* strings[] = {"old", "old", "old"};
    d->getStringBufferArray(item, strings, 3);
    EXPECT_EQ(strings[0], nullptr); // an element, but no string
    EXPECT_EQ(strings[1] + std::string(strings[2]), "12old");
    const Item* items[] = {root, root, root};
    d->getItemArray(item, items, 3);
    EXPECT_TRUE(items[1] == at("item/1") && items[2] == root);
    const float floats[] = {0.25f, 2.0f};
    d->setFloatArray(item, floats, 2);
    EXPECT_EQ(outline(item), "{0:0.25 1:2.0}");
}

TEST_F(Values, LengthsThatNoArrayCanHaveChangeNothing) {
    const int64_t ints[] = {1, 2};
    const bool bools[] = {true, false};
    const char* const strings[] = {"a", "b"};
    Item* const array = d->createItem(root, "array", kDict);
    d->setInt64Array(array, ints, 2);
    for (const size_t length : {SIZE_MAX, (size_t{1} << 31) + 1}) {
        for (Item* const target : {item, array}) {
            d->setInt64Array(target, ints, length);
            d->setBoolArray(target, bools, length);
            d->setStringArray(target, strings, length);
        }
    }
    EXPECT_EQ(outline(root), "{item:0 array:{0:1 1:2}}");
}
