// Runs a target without a fuzzing engine: over a corpus, which is one file with an input in
// hexadecimal digits a line, and over inputs made by chance.
//
//   replay CORPUS [--random N] [--seed S]   runs the corpus, then N inputs made from it and anew
//   replay --file FILE...                   runs each file as one input, as a fuzzer wrote it
//   replay CORPUS --unpack DIRECTORY        writes the inputs into files, for a fuzzer
//   replay CORPUS --pack DIRECTORY          makes the corpus of such files
#include "Target.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

using Input = std::vector<uint8_t>;
using Corpus = std::vector<Input>;

constexpr char kDigits[] = "0123456789abcdef";

Corpus readCorpus(const std::string& file) {
    std::ifstream stream(file);
    Corpus corpus;
    for (std::string line; std::getline(stream, line);) {
        Input& input = corpus.emplace_back();
        for (size_t at = 0; at + 1 < line.size(); at += 2) {
            input.push_back(static_cast<uint8_t>(std::stoi(line.substr(at, 2), nullptr, 16)));
        }
    }
    return corpus;
}

Input readInput(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void pack(const std::string& file, const std::string& directory) {
    std::vector<std::string> lines;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        std::string& line = lines.emplace_back();
        for (const uint8_t byte : readInput(entry.path())) {
            line += {kDigits[byte / 16], kDigits[byte % 16]};
        }
    }
    std::sort(lines.begin(), lines.end());
    std::ofstream stream(file);
    std::copy(lines.begin(), lines.end(), std::ostream_iterator<std::string>(stream, "\n"));
}

void unpack(const Corpus& corpus, const std::string& directory) {
    for (size_t index = 0; index < corpus.size(); ++index) {
        std::ofstream stream(std::filesystem::path(directory) / std::to_string(index));
        std::copy(corpus[index].begin(), corpus[index].end(),
                  std::ostreambuf_iterator<char>(stream));
    }
}

class Maker {
public:
    Maker(const Corpus& corpus, size_t seed)
        : m_corpus(corpus), m_random(static_cast<uint32_t>(seed)) {}

    // Every other one is new, the others are inputs of the corpus with some bytes changed.
    Input make() {
        Input input;
        if (m_corpus.empty() || _roll(2) == 0) {
            input.resize(_roll(600));
            std::generate(input.begin(), input.end(), [this] { return _byte(); });
            return input;
        }
        input = m_corpus[_roll(m_corpus.size())];
        for (size_t changes = 1 + _roll(8); changes > 0; --changes) {
            _change(input);
        }
        return input;
    }

private:
    size_t _roll(size_t sides) {
        return m_random() % sides;
    }
    uint8_t _byte() {
        return static_cast<uint8_t>(m_random());
    }
    void _change(Input& input) {
        const auto at = input.begin() + static_cast<std::ptrdiff_t>(_roll(input.size() + 1));
        const Input& other = m_corpus[_roll(m_corpus.size())];
        const size_t kind = _roll(4);
        if (kind == 0) {
            input.insert(at, other.begin(), other.end());
        } else if (kind == 1 || at == input.end()) {
            input.insert(at, _byte());
        } else if (kind == 2) {
            input.erase(at);
        } else {
            *at = _byte();
        }
    }

    const Corpus& m_corpus;
    std::mt19937 m_random;
};

void run(const Input& input) {
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

} // namespace

int main(int argc, char** argv) {
    const std::string corpusFile = argc > 1 ? argv[1] : "";
    if (corpusFile == "--file") {
        std::for_each(argv + 2, argv + argc, [](const char* file) { run(readInput(file)); });
        return 0;
    }
    size_t randomCount = 0;
    size_t seed = 1;
    const Corpus corpus = readCorpus(corpusFile);
    for (int index = 2; index + 1 < argc; index += 2) {
        const std::string option = argv[index];
        if (option == "--pack") {
            pack(corpusFile, argv[index + 1]);
            return 0;
        }
        if (option == "--unpack") {
            unpack(corpus, argv[index + 1]);
            return 0;
        }
        (option == "--random" ? randomCount : seed) = std::stoul(argv[index + 1]);
    }
    std::for_each(corpus.begin(), corpus.end(), run);
    Maker maker(corpus, seed);
    for (size_t count = 0; count < randomCount; ++count) {
        run(maker.make());
    }
    printf("%zu inputs of the corpus, %zu by chance from seed %zu\n", corpus.size(), randomCount,
           seed);
    return 0;
}
