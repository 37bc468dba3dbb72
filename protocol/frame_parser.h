// The receive path's line cutter. cmd_Parse_from_buffer (public) takes a
// whole well-formed line in one step and leaves every other line to the
// character-by-character rules; this header gives tests and fuzz targets
// those rules alone, so the two can be compared record for record.
#ifndef ATCMD_PROTOCOL_FRAME_PARSER_H
#define ATCMD_PROTOCOL_FRAME_PARSER_H

#include "atcmdprocess.h"

extern "C" {

ATCMD_API int cmd_Parse_from_buffer(AtCmder_t *cmd, const char *buffer);
}

namespace atcmd {

int parse_char_by_char(AtCmder_t *cmd, const char *buffer);

}  // namespace atcmd

#endif
