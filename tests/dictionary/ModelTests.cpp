// Random operations on two trees against a plain model of what they must hold.
#include "DictionaryFixture.h"

#include <algorithm>
#include <random>
#include <vector>

namespace vorn::dictionary {
namespace {

std::string operator/(const std::string& path, const std::string& name) {
    return path.empty() ? name : path + "/" + name;
}

struct Node {
    std::string name;
    ItemType type = kDict;
    std::string value = "(none)"; // as text
    std::vector<Node> children;
    const Item* item = nullptr; // once seen, the item must stay the same

    Node* find(const std::string& path) {
        const size_t length = std::min(path.find('/'), path.size());
        for (Node& child : children) {
            if (!path.empty() && path.compare(0, length, child.name) == 0) {
                return child.find(path.substr(std::min(length + 1, path.size())));
            }
        }
        return path.empty() ? this : nullptr;
    }
    Node& create(const std::string& path, ItemType newType) {
        constexpr const char* kNeutral[] = {"false", "0", "0.0", "", "(none)"};
        const ItemType wanted = path.empty() ? newType : kDict;
        if (type != wanted) {
            type = wanted;
            value = kNeutral[static_cast<size_t>(wanted)];
            children.clear();
        }
        const size_t length = std::min(path.find('/'), path.size());
        Node* child = find(path.substr(0, length)); // itself for an empty path
        if (!child) {
            child = &children.emplace_back();
            child->name = path.substr(0, length);
        }
        return path.empty()
                   ? *this
                   : child->create(path.substr(std::min(length + 1, path.size())), newType);
    }
    void setArray(const std::vector<int64_t>& values) {
        std::vector<Node> elements;
        for (const int64_t value : values) {
            elements.push_back(create(std::to_string(elements.size()), kInt));
            elements.back().value = std::to_string(value);
        }
        create("", kDict);
        children = elements;
    }
};

// The questions of a merge and their answers, which depend on seed and number alone.
struct Questions {
    uint32_t seed;
    std::string log;

    UpdateAction answer(ItemType dstType, ItemType srcType) {
        log += std::to_string(static_cast<int>(dstType) * 10 + static_cast<int>(srcType)) + " ";
        return (seed + log.size() * 7) % 5 == 0 ? UpdateAction::eKeep : UpdateAction::eOverwrite;
    }
    void merge(Node& base, const std::string& path, const Node& src) {
        const Node* dst = base.find(path);
        if (!dst || dst->type != kDict || src.type != kDict) {
            if (answer(dst ? dst->type : kNone, src.type) == UpdateAction::eKeep) {
                return;
            }
            base.create(path, src.type).value = src.value;
        }
        for (const Node& child : src.children) {
            merge(base, path / child.name, child);
        }
    }
};

class Model : public DictionaryTest {
protected:
    uint32_t roll(uint32_t sides) {
        return static_cast<uint32_t>(random() % sides);
    }
    std::string rollPath() {
        const char* const names[] = {"a", "b", "0", "1", "a name of more than sixteen bytes"};
        std::string path;
        for (uint32_t depth = roll(4); depth > 0; --depth) {
            path = path / names[roll(5)];
        }
        return path;
    }
    // The tree below item, found by its path, is what the model says.
    void check(Item* base, const Item* item, const Item* parent, Node& node, std::string path) {
        ASSERT_TRUE(d->getItem(base, path.c_str()) == item && d->getItemParent(item) == parent);
        ASSERT_TRUE(!node.item || node.item == item) << path << " moved";
        node.item = item;
        ASSERT_TRUE(d->getItemType(item) == node.type && text(item) == node.value) << path;
        ASSERT_EQ(d->getItemChildCount(item), node.children.size()) << path;
        for (size_t i = 0; i < node.children.size(); ++i) {
            Node& child = node.children[i];
            check(base, d->getItemChildByIndex(item, i), item, child, path / child.name);
        }
    }
    void update(Item* base, Node& model, Item* from, Node& fromModel) {
        const std::string path = rollPath(), srcPath = rollPath();
        const Node* src = fromModel.find(srcPath);
        Questions asked{roll(1000), ""}, expected = asked;
        d->update(
            base, path.c_str(), from, srcPath.c_str(),
            [](const Item*, ItemType dstType, const Item*, ItemType srcType, void* questions) {
                return static_cast<Questions*>(questions)->answer(dstType, srcType);
            },
            &asked);
        if (src) {
            expected.merge(model, path, Node(*src)); // the source as it was
        }
        ASSERT_EQ(asked.log, expected.log) << srcPath << " to " << path;
    }
    void step(Item* base, Node& model) {
        const std::string path = rollPath();
        Item* item = d->getItemMutable(base, path.c_str());
        Node* node = model.find(path);
        const std::string string(roll(40), 's');
        const uint32_t operation = node && !path.empty() ? roll(5) : 4;
        if (operation == 0) {
            d->destroyItem(item);
            Node* parent = model.find(path.substr(0, path.rfind('/') + 1));
            parent->children.erase(parent->children.begin() + (node - parent->children.data()));
        } else if (operation == 1) {
            d->setString(item, string.c_str());
            node->create("", kString).value = string;
        } else if (operation == 2) {
            const std::vector<int64_t> values(roll(4), roll(9));
            d->setInt64Array(item, values.data(), values.size());
            node->setArray(values);
        } else {
            const ItemType type = static_cast<ItemType>(roll(5));
            d->createItem(base, path.c_str(), type);
            model.create(path, type);
        }
    }

    std::mt19937 random;
};

TEST_F(Model, AgreesAfterAnyOperations) {
    for (uint32_t seed = 0; seed < 20; ++seed) {
        random.seed(seed);
        Item* const roots[] = {d->makeDictionaryAtPath(nullptr, "one"),
                               d->makeDictionaryAtPath(nullptr, "two")};
        Node models[2];
        for (int count = 0; count < 5000 && !HasFatalFailure(); ++count) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", step " << count);
            const uint32_t tree = roll(2), other = roll(2);
            roll(5) || outline(roots[0]).size() + outline(roots[1]).size() > 10000
                ? step(roots[tree], models[tree])
                : update(roots[tree], models[tree], roots[other], models[other]);
            if (count % 25 == 0 && !HasFatalFailure()) {
                check(roots[tree], roots[tree], nullptr, models[tree], "");
            }
        }
        d->destroyItem(roots[seed % 2]);
    }
}

} // namespace
} // namespace vorn::dictionary
