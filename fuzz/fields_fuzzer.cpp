// Every extraction helper on one received line of any content. Outputs are
// heap blocks of exactly the size the parsers give them, so a copy past a
// field or a missing NUL inside it is caught.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>

#include "atcmdprocess.h"
#include "fuzz/fuzz_quiet.h"
#include "protocol/fields.h"

namespace {

void check_terminated(const char *s, size_t size) {
    if (memchr(s, '\0', size) == nullptr) abort();
}

template <size_t N>
void numbers(unsigned int (*fn)(const char *, int32_t *), const char *line) {
    std::unique_ptr<int32_t[]> out(new int32_t[N]);
    fn(line, out.get());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    if (freopen("/dev/null", "w", stdout) == nullptr) return 0;
    atcmd_fuzz::silence_android_log();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string input(reinterpret_cast<const char *>(data), size);
    const char *line = input.c_str();

    int64_t value = 0;
    getvalue_fromCmdString(line, &value);
    int32_t state = 0;
    getstate_fromCmdString(line, &state);

    for (size_t out_size : {1u, 32u, 160u}) {
        std::unique_ptr<char[]> out(new char[out_size]);
        if (getstr_fromCmdString(line, out.get(), out_size) == 0)
            check_terminated(out.get(), out_size);
    }

    numbers<6>(getBatinfo_fromCmdString, line);
    numbers<2>(getTmpinfo_fromCmdString, line);
    numbers<2>(getUsbDevinfo_fromCmdString, line);
    numbers<3>(getHALLinfo_fromCmdString, line);
    numbers<3>(getACCinfo_fromCmdString, line);

    std::unique_ptr<char[]> block(new char[atcmd::kVerBlockSize]);
    getVerInfo_fromCmdString(line, block.get());
    for (const auto &slot : atcmd::kVerSlots)
        check_terminated(block.get() + slot.offset, slot.size);
    return 0;
}
