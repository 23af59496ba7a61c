// Values: conversion, text form, strings, arrays.
#include "DictionaryFixture.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <random>
#include <sstream>
#include <vector>

namespace vorn::dictionary {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

class Values : public DictionaryTest {
protected:
    void SetUp() override {
        DictionaryTest::SetUp();
        item = d->createItem(root, "item", kInt);
    }
    template <class T>
    std::string read(void (*slot)(const Item*, T*, size_t)) const {
        T places[] = {T(9), T(9), T(9), T(9), T(9)};
        slot(item, places, 4);
        std::ostringstream result;
        for (const T place : places) {
            result << place << ' ';
        }
        return result.str();
    }
    template <class T>
    std::string write(void (*slot)(Item*, const T*, size_t), std::initializer_list<T> elements) {
        slot(item, elements.begin(), elements.size());
        return outline(item);
    }

    Item* item = nullptr;
};

TEST_F(Values, ConvertToEveryTypeTheyAreAccessibleAs) {
    struct Row {
        const char* text;
        ItemType type; // of the value with that text
        bool isNumber;
        int64_t asInt;
        double asFloat;
        bool asBool;
    };
    constexpr Row kRows[] = {
        {"2.9", kFloat, true, 2, 2.9, true},
        {"-0.25", kFloat, true, 0, -0.25, true},
        {"-0", kFloat, true, 0, 0, false},
        {"1e300", kFloat, true, INT64_MAX, 1e300, true},
        {"9223372036854775808", kFloat, true, INT64_MAX, 9223372036854775808.0, true},
        {"-inf", kFloat, true, INT64_MIN, -kInfinity, true},
        {"-5", kInt, true, -5, -5, true},
        {"12", kString, true, 12, 12, true},
        {"9223372036854775807", kString, true, INT64_MAX, 9223372036854775807.0, true},
        {"2.5e1", kString, true, 25, 25, true},
        {"0", kString, true, 0, 0, false},
        {"", kString, false, 0, 0, false},
        {"12x", kString, false, 0, 0, false},
        {"-", kString, false, 0, 0, false},
        {"truely", kString, false, 0, 0, false},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.text);
        row.type == kString ? d->setString(item, row.text)
                            : d->setFloat64(item, std::strtod(row.text, nullptr));
        if (row.type == kInt) {
            d->setInt64(item, row.asInt);
        }
        for (ItemType type : {kBool, kInt, kFloat}) {
            EXPECT_EQ(d->isAccessibleAs(type, item), row.isNumber);
        }
        EXPECT_TRUE(d->isAccessibleAs(kString, item));
        EXPECT_FALSE(d->isAccessibleAs(kDict, item) || d->isAccessibleAs(kNone, item));
        EXPECT_EQ(d->getAsInt64(item), row.asInt);
        EXPECT_EQ(d->getAsFloat64(item), row.asFloat);
        EXPECT_EQ(d->getAsBool(item), row.asBool);
    }
    for (const char* name : {"true", "TRUE", "True", "false", "FALSE"}) {
        d->setString(item, name);
        EXPECT_TRUE(d->isAccessibleAs(kBool, item)) << name;
        EXPECT_EQ(d->getAsBool(item), (*name | 32) == 't') << name;
    }
    d->setBool(item, true);
    EXPECT_TRUE(d->getAsInt64(item) == 1 && d->getAsFloat64(item) == 1.0);
    d->setFloat64(item, kNan);
    EXPECT_EQ(d->getAsInt64(item), 0);
    EXPECT_TRUE(d->isAccessibleAs(kDict, root) && !d->isAccessibleAs(kString, root));
    EXPECT_EQ(d->getAsInt64(root), 0);
    EXPECT_EQ(text(root), "(none)");
}

TEST_F(Values, TextIsTheShortestThatReadsBackAndTellsFloatsFromIntegers) {
    const auto textOf = [&](double value) { return d->setFloat64(item, value), text(item); };
    EXPECT_EQ(textOf(1.0) + textOf(0.1) + textOf(-0.0) + textOf(-12.5), "1.00.1-0.0-12.5");
    EXPECT_EQ(textOf(kNan) + textOf(kInfinity) + textOf(-kInfinity), "naninf-inf");
    std::vector<double> values = {1e300, 5e-324, 0.1 + 0.2, 1e15, 1e16, 123456789012345680.0};
    std::mt19937_64 random(7);
    for (int i = 0; i < 20000; ++i) {
        const uint64_t bits = random();
        std::memcpy(&values.emplace_back(), &bits, sizeof(bits));
    }
    for (const double value : values) {
        if (std::isfinite(value)) {
            char shortest[64] = {};
            std::to_chars(shortest, shortest + 63, value);
            const bool hasPoint = std::strpbrk(shortest, ".e") != nullptr;
            const std::string form = textOf(value);
            ASSERT_EQ(std::strtod(form.c_str(), nullptr), value) << form;
            ASSERT_LE(form.size(), std::strlen(shortest) + (hasPoint ? 0 : 2)) << form;
            ASSERT_NE(form.find_first_of(".e"), std::string::npos) << form;
        }
    }
    EXPECT_EQ(write(d->setInt64Array, {INT64_MIN, INT64_MAX}),
              "{0:-9223372036854775808 1:9223372036854775807}");
}

TEST_F(Values, AStringIsTheItemsOwnCopyAndMayBeItsOwnSource) {
    EXPECT_EQ(d->getStringBuffer(item), nullptr);
    d->setString(item, nullptr);
    EXPECT_STREQ(d->getStringBuffer(item), "");
    for (const size_t length : {3, 7, 8, 15, 16, 100, 5000, 300000}) {
        const std::string value = "\xE9" + std::string(length - 1, 'a');
        d->setString(item, value.c_str());
        d->setString(item, d->getStringBuffer(item));
        EXPECT_EQ(d->getStringBuffer(item), value);
        d->setString(item, d->getStringBuffer(item) + length / 2);
        EXPECT_EQ(text(item), value.substr(length / 2));
    }
    const std::string one(40, '1'), two(40, '2');
    write(d->setStringArray, {one.c_str(), two.c_str(), static_cast<const char*>(nullptr)});
    EXPECT_STREQ(d->getStringBufferAt(item, 2), "");
    write(d->setStringArray, {d->getStringBufferAt(item, 1), d->getStringBufferAt(item, 0)});
    EXPECT_EQ(outline(item), "{0:'" + two + "' 1:'" + one + "'}");
    const char* own = d->getStringBufferAt(item, 1);
    d->setStringArray(d->getItemAtMutable(item, 1), &own, 1);
    EXPECT_EQ(outline(item), "{0:'" + two + "' 1:{0:'" + one + "'}}");
}

TEST_F(Values, ArraySettersReuseTheElementsThatExistAndDropTheRest) {
    EXPECT_EQ(write<int32_t>(d->setIntArray, {1, -2}), "{0:1 1:-2}");
    d->createItem(item, "x/y", kInt);
    EXPECT_EQ(write(d->setFloat64Array, {0.5, 1.0, 2.0}), "{0:0.5 1:1.0 2:2.0}");
    EXPECT_EQ(write(d->setBoolArray, {true, false}), "{0:true 1:false}");
    EXPECT_EQ(write(d->setFloatArray, {0.25f, 0.5f}), "{0:0.25 1:0.5}");
    EXPECT_EQ(write<int64_t>(d->setInt64Array, {}), "{}");
    EXPECT_EQ(d->getPreferredArrayType(item), kNone);
    d->setStringAt(item, 0, "x");
    d->setStringArray(item, nullptr, 2);
    EXPECT_EQ(outline(root), "{item:{}}");
    const Item* one = d->makeIntAtPath(item, "1", 4);
    d->makeIntAtPath(item, "0", 3);
    EXPECT_EQ(write<int32_t>(d->setIntArray, {1, -2}), "{0:1 1:-2}"); // in the order of the array
    EXPECT_EQ(d->getItemAt(item, 1), one);
}

TEST_F(Values, AnArrayIsADictionaryOfTheNamesZeroToLengthMinusOne) {
    struct Row {
        const char *first, *second;
        size_t length;
    };
    constexpr Row kRows[] = {{"1", "0", 2}, {"0", "0", 1},  {"0", "2", 0}, {"1", "1", 0},
                             {"0", "x", 0}, {"0", "01", 0}, {"", "", 0}}; // the last: no dictionary
    for (const Row& row : kRows) {
        Item* other = d->makeDictionaryAtPath(nullptr, "other");
        d->createItem(other, row.first, kInt);
        d->createItem(other, row.second, kInt);
        EXPECT_EQ(d->getArrayLength(other), row.length) << outline(other);
        EXPECT_EQ(d->isAccessibleAsArray(other), row.length > 0) << outline(other);
        EXPECT_EQ(d->isAccessibleAsArrayOf(kString, other), row.length > 0) << outline(other);
        EXPECT_EQ(d->getPreferredArrayType(other) == kNone, row.length == 0) << outline(other);
    }
    d->setBoolAt(item, 0, true);
    EXPECT_EQ(d->getPreferredArrayType(item), kBool);
    d->setInt64At(item, 1, 2);
    EXPECT_EQ(d->getPreferredArrayType(item), kInt);
    d->setFloat64At(item, 2, 2.5);
    EXPECT_EQ(d->getPreferredArrayType(item), kFloat);
    EXPECT_TRUE(d->isAccessibleAsArrayOf(kInt, item));
    d->setInt64At(item, 1, (int64_t{1} << 53) + 1); // no float has this value
    EXPECT_EQ(d->getPreferredArrayType(item), kString);
    d->setStringAt(item, 1, "x");
    EXPECT_EQ(d->getPreferredArrayType(item), kString);
    EXPECT_FALSE(d->isAccessibleAsArrayOf(kInt, item) || d->isAccessibleAsArrayOf(kDict, item));
    EXPECT_EQ(d->getArrayLength(item), 3u);
}

TEST_F(Values, ElementsAreReadAndWrittenByIndexAndPlacesWithoutOneAreLeftAlone) {
    d->setFloat64At(item, 0, 2.5); // the value becomes an array
    d->setStringAt(item, 1, "12");
    d->setInt64At(item, 3, 3000000000);
    d->setBoolAt(item, 4, false);
    EXPECT_EQ(outline(item), "{0:2.5 1:'12' 3:3000000000 4:false}");
    EXPECT_EQ(read(d->getAsInt64Array), "2 12 9 3000000000 9 ");
    EXPECT_EQ(read(d->getAsIntArray), "2 12 9 2147483647 9 ");
    EXPECT_EQ(read(d->getAsFloat64Array), "2.5 12 9 3e+09 9 ");
    EXPECT_EQ(read(d->getAsFloatArray), "2.5 12 9 3e+09 9 ");
    d->setBoolAt(item, 0, false);
    EXPECT_EQ(read(d->getAsBoolArray), "0 1 1 1 1 ");
    const char* strings[] = {"old", "old", "old", "old"};
    d->getStringBufferArray(item, strings, 3);
    EXPECT_EQ(strings[0], nullptr); // an element, but no string
    EXPECT_EQ(strings[1] + std::string(strings[2]), "12old");
    const Item* items[] = {root, root, root, root};
    d->getItemArray(item, items, 3);
    EXPECT_TRUE(items[1] == at("item/1") && items[2] == root && items[3] == root);
    EXPECT_EQ(d->getItemAtMutable(item, 1), at("item/1"));
    EXPECT_TRUE(d->getAsInt64At(item, 1) == 12 && d->getAsFloat64At(item, 1) == 12);
    EXPECT_TRUE(d->getAsBoolAt(item, 3) && !d->getAsBoolAt(item, 4));
    EXPECT_EQ(d->getStringBufferAt(item, 1), d->getStringBuffer(items[1]));
    const char* copy = d->createStringBufferFromItemValueAt(item, 3);
    EXPECT_STREQ(copy, "3000000000");
    d->destroyStringBuffer(copy);
    EXPECT_EQ(d->getItemAt(item, 2), nullptr);
    EXPECT_EQ(d->createStringBufferFromItemValueAt(item, 2), nullptr);
}

} // namespace
} // namespace vorn::dictionary
