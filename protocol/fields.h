// Field reading beyond the exported extractors: the "+STATE" words, and
// where getVerInfo_fromCmdString puts the seven version items in its
// 256-byte block (the layout of the accessory record's version fields).
#ifndef ATCMD_PROTOCOL_FIELDS_H
#define ATCMD_PROTOCOL_FIELDS_H

#include <stddef.h>
#include <stdint.h>
#include "atcmdprocess.h"

extern "C" {

/* Field extraction; each takes the whole received line. */
ATCMD_API unsigned int getvalue_fromCmdString(const char *line, int64_t *value);
ATCMD_API unsigned int getstr_fromCmdString(const char *line, char *out, size_t out_size);
ATCMD_API unsigned int getstate_fromCmdString(const char *line, int32_t *state);
ATCMD_API unsigned int getBatinfo_fromCmdString(const char *line, int32_t out[6]);
ATCMD_API unsigned int getTmpinfo_fromCmdString(const char *line, int32_t out[2]);
ATCMD_API unsigned int getUsbDevinfo_fromCmdString(const char *line, int32_t out[2]);
ATCMD_API unsigned int getHALLinfo_fromCmdString(const char *line, int32_t out[3]);
ATCMD_API unsigned int getACCinfo_fromCmdString(const char *line, int32_t out[3]);
ATCMD_API unsigned int getVerInfo_fromCmdString(const char *line, char block[256]);
}

namespace atcmd {

// The word a "+STATE" report carries for state (ATCMD_STATE_*); "" for a
// state that is never sent (INIT, or any other number). The same table
// reads the words back (getstate_fromCmdString).
const char *state_word(int32_t state);

struct VerSlot {
    size_t offset;
    size_t size;
};

inline constexpr VerSlot kVerSlots[] = {{0, 32},   {32, 32},  {64, 32}, {96, 64},
                                        {160, 32}, {192, 32}, {224, 32}};
inline constexpr size_t kVerBlockSize = 256;
static_assert(kVerSlots[6].offset + kVerSlots[6].size == kVerBlockSize, "slots fill the block");

}  // namespace atcmd

#endif
