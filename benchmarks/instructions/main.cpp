// A number of reads or writes and nothing else, to be counted by callgrind: two runs of different
// length, the difference of their instructions divided by the difference of their operations.
//
//   vorn_bench_instructions vorn|absl read|write COUNT
//
// Hot, as in reads.cpp, in the tree of 1k values.
#include "Loaded.h"
#include "peers/AbslMap.h"

#include <cstdio>
#include <cstdlib>

namespace vorn::bench {

namespace {

template <class Side>
int64_t run(bool isWrite, size_t count) {
    const Tree& tree = *findTree("1k");
    Loaded<Side>& subject = Loaded<Side>::instance(tree);
    const std::vector<uint16_t> order = randomOrder(subject.hotKeys().size());
    int64_t sum = 0;
    for (size_t i = 0; i < count; ++i) {
        const char* path = subject.hotKeys()[order[i & kOrderMask]];
        if (isWrite) {
            subject.side().overwrite(path, static_cast<int64_t>(i));
        } else {
            sum += subject.side().read(path);
        }
    }
    return sum;
}

} // namespace

} // namespace vorn::bench

int main(int argc, char** argv) {
    using namespace vorn::bench;
    const std::string side = argc == 4 ? argv[1] : "";
    const std::string operation = argc == 4 ? argv[2] : "";
    if ((side != "vorn" && side != "absl") || (operation != "read" && operation != "write")) {
        std::fprintf(stderr, "usage: %s vorn|absl read|write COUNT\n", argv[0]);
        return 2;
    }
    const size_t count = std::strtoul(argv[3], nullptr, 10);
    const int64_t sum = side == "vorn" ? run<VornStore>(operation == "write", count)
                                       : run<AbslMap>(operation == "write", count);
    std::printf("%lld\n", static_cast<long long>(sum));
}
