// What the two sides of a comparison have in common: drawn calls of a table's slots, written down
// in a transcript, and the comparison of trees.
#pragma once

#include "Draw.h"
#include "Transcript.h"
#include "model/DictionaryModel.h"

#include <cstring>
#include <deque>

namespace vorn::fuzz {

constexpr size_t kMaxLength = 6;     // of arrays
constexpr size_t kMaxTreeSize = 150; // no merge makes a larger one

// Decisions that only the model's side can take; the other side follows.
using Decisions = std::deque<bool>;

class Side {
public:
    Side(const IDictionary& idict, std::string_view input, const Side* model, Decisions& decisions)
        : m_idict(idict), m_draw(input), m_transcript(model ? &model->m_transcript : nullptr),
          m_model(model), m_decisions(decisions) {}
    Side(const Side&) = delete;
    Side& operator=(const Side&) = delete;

    bool isAnyLeft() const {
        return m_draw.left() > 0;
    }

    // Ends the process unless the tree below item is what the model's says, and every item that was
    // there before is still the same.
    void compareTrees(Node& node, const Item* item, const Item* parent = nullptr) const;

protected:
    void finishStep() {
        m_draw.forget();
        if (m_model) {
            m_transcript.finish();
            if (!m_decisions.empty() || m_draw.left() != m_model->m_draw.left()) {
                diverge(m_transcript.tail() + "the two sides drew differently");
            }
        }
    }

    // Whether the contract allows what comes; asked on the model's side only.
    template <class Rule>
    bool isAllowed(Rule rule) {
        if (!m_model) {
            m_decisions.push_back(rule());
            return m_decisions.back();
        }
        const bool decision = !m_decisions.empty() && m_decisions.front();
        m_decisions.pop_front();
        return decision;
    }

    // "root/a/b", or "null".
    std::string describe(const Item* item) const {
        std::string path = item ? m_idict.getItemName(item) : "null";
        while (item && (item = m_idict.getItemParent(item))) {
            path.insert(0, "/").insert(0, m_idict.getItemName(item));
        }
        return path;
    }
    template <class T>
    decltype(auto) shown(const T& value) const {
        if constexpr (std::is_convertible_v<T, const Item*>) {
            return describe(value);
        } else {
            return (value);
        }
    }

    template <class... Args>
    void showCall(const char* name, const Args&... args) {
        g_operations.count += m_model != nullptr;
        m_transcript.add(name);
        ((m_transcript.add(" "), m_transcript.add(shown(args))), ...);
        m_transcript.endLine();
    }
    template <class T>
    void showArray(const T* array, size_t length) {
        for (size_t index = 0; index < length; ++index) {
            m_transcript.line("  ", index, ": ", shown(array[index]));
        }
    }

    // Reads the array at place, an item or a path, by a slot that is told how long it is to be.
    template <class T, class Place>
    void readArray(const char* name, Place place, void (*slot)(Place, T*, size_t)) {
        T places[kMaxLength] = {};
        const size_t length = m_draw.pick(kMaxLength + 1);
        showCall(name, place, length);
        slot(place, length > 0 ? places : nullptr, length);
        showArray(places, kMaxLength);
    }

    // A merge's question, and its answer. The source is asked for as it was before the merge, which
    // may have written to it since.
    UpdateAction answer(const Item* dst, ItemType dstType, const Item* src, ItemType srcType) {
        m_transcript.line("  asked: ", describe(dst), " ", dstType, m_idict.getItemType(dst), " < ",
                          m_idict.getItemName(src), " ", srcType);
        return m_draw.isOneIn(4) ? UpdateAction::eKeep : UpdateAction::eOverwrite;
    }

    const IDictionary& m_idict;
    Draw m_draw;
    Transcript m_transcript;

private:
    const Side* m_model; // null: this is it
    Decisions& m_decisions;
};

} // namespace vorn::fuzz
