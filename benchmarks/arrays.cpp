// One array of 1,000 integers at a path of four names, in a tree of 100k values (--tree).
//
//   array_overwrite   all elements replaced, the array stays as long as it is
//   array_read        all elements copied out
//   array_element     one element by its index; the indices cannot be predicted
//
// Peer: nlohmann::json with a pointer made ahead, in its usual form, and for overwriting also
// element by element (nlohmann_in_place).
#include "Loaded.h"
#include "peers/NlohmannJson.h"

#include <numeric>

namespace vorn::bench {

namespace {

constexpr size_t kLength = 1000;
constexpr const char* kArrayPath = "/renderer1/window1/shadows1/distances";

std::vector<int64_t> elements(int64_t first) {
    std::vector<int64_t> values(kLength);
    std::iota(values.begin(), values.end(), first);
    return values;
}

class VornArray {
public:
    static constexpr const char* kName = VornStore::kName;

    explicit VornArray(const Tree& tree)
        : m_settings(Loaded<VornStore>::instance(tree).side().settings()) {}

    void overwrite(const std::vector<int64_t>& values) {
        m_settings->setInt64Array(kArrayPath, values.data(), values.size());
    }
    void read(std::vector<int64_t>& values) const {
        m_settings->getAsInt64Array(kArrayPath, values.data(), values.size());
    }
    int64_t readElement(size_t index) const {
        return m_settings->getAsInt64At(kArrayPath, index);
    }

private:
    const settings::ISettings* m_settings;
};

class NlohmannArray {
public:
    static constexpr const char* kName = NlohmannJson::kName;

    explicit NlohmannArray(const Tree& tree)
        : m_root(Loaded<NlohmannJson>::instance(tree).side().root()) {
        m_root[m_pointer] = elements(0);
    }

    void overwrite(const std::vector<int64_t>& values) {
        m_root.at(m_pointer) = values;
    }
    void read(std::vector<int64_t>& values) const {
        size_t i = 0;
        for (const nlohmann::json& element : m_root.at(m_pointer)) {
            values[i++] = element.get<int64_t>();
        }
    }
    int64_t readElement(size_t index) const {
        return m_root.at(m_pointer)[index].get<int64_t>();
    }

protected:
    nlohmann::json& m_root;
    const NlohmannJson::Pointer m_pointer{kArrayPath};
};

class NlohmannArrayInPlace : public NlohmannArray {
public:
    static constexpr const char* kName = "nlohmann_in_place";

    using NlohmannArray::NlohmannArray;

    void overwrite(const std::vector<int64_t>& values) {
        size_t i = 0;
        for (nlohmann::json& element : m_root.at(m_pointer)) {
            element = values[i++];
        }
    }
};

template <class Side>
void requireElements(const Side& side, const std::vector<int64_t>& expected) {
    std::vector<int64_t> found(kLength, -1);
    side.read(found);
    require(found == expected, std::string(Side::kName) + " holds another array");
}

template <class Side>
void overwriteArray(benchmark::State& state, const Tree& tree) {
    Side side(tree);
    const std::vector<int64_t> values[2] = {elements(1), elements(1 << 20)};
    size_t i = 0;
    for (auto _ : state) {
        side.overwrite(values[i & 1]);
        ++i;
    }
    requireElements(side, values[(i - 1) & 1]);
}

template <class Side>
void readArray(benchmark::State& state, const Tree& tree) {
    Side side(tree);
    side.overwrite(elements(5));
    std::vector<int64_t> values(kLength);
    for (auto _ : state) {
        side.read(values);
        benchmark::DoNotOptimize(values.data());
        benchmark::ClobberMemory();
    }
    requireElements(side, elements(5));
}

template <class Side>
void readElement(benchmark::State& state, const Tree& tree) {
    Side side(tree);
    side.overwrite(elements(0));
    const std::vector<uint16_t> order = randomOrder(kLength);
    int64_t sum = 0;
    size_t i = 0;
    for (auto _ : state) {
        sum += side.readElement(order[i]);
        i = (i + 1) & kOrderMask;
    }
    int64_t expected = 0;
    for (size_t n = 0; n < static_cast<size_t>(state.iterations()); ++n) {
        expected += order[n & kOrderMask];
    }
    require(sum == expected, std::string(Side::kName) + " read something else");
}

} // namespace

void registerWorkloads(const Options& options) {
    const Tree& tree = chosenTree(options, "100k");
    const auto add = [&tree](const char* row, const char* side, auto run) {
        addWorkload(row, side, [&tree, run](benchmark::State& state) { run(state, tree); });
    };
    add("array_overwrite", VornArray::kName, overwriteArray<VornArray>);
    add("array_overwrite", NlohmannArray::kName, overwriteArray<NlohmannArray>);
    add("array_overwrite", NlohmannArrayInPlace::kName, overwriteArray<NlohmannArrayInPlace>);
    add("array_read", VornArray::kName, readArray<VornArray>);
    add("array_read", NlohmannArray::kName, readArray<NlohmannArray>);
    add("array_element", VornArray::kName, readElement<VornArray>);
    add("array_element", NlohmannArray::kName, readElement<NlohmannArray>);
}

} // namespace vorn::bench
