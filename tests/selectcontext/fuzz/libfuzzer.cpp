// The entry of libFuzzer. It needs clang++ and -fsanitize=fuzzer-no-link for all sources:
// scripts/trust-fuzz --libfuzzer builds it.

#include "tests/selectcontext/fuzz/Bytes.h"
#include "tests/selectcontext/fuzz/Lockstep.h"
#include "tests/selectcontext/model/Expect.h"

#include <cstdint>
#include <cstdlib>
#include <iostream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// `kv_fuzz --file` reduces an input that fails.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const kvmodel::Lockstep lockstep;
    const kvmodel::Episode episode = kvmodel::episodeOf({data, data + size}, "input");
    try {
        lockstep.perform(episode, [](int) {});
    } catch (const kvmodel::Mismatch& mismatch) {
        std::cerr << mismatch.what << '\n';
        for (const kvmodel::Operation& operation : episode.operations)
            std::cerr << "  " << operation << '\n';
        std::abort();
    }
    return 0;
}
