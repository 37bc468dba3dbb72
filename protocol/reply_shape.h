// The shape most response parsers share: an opening log line, a value read
// from behind the line's '=', a message to the client, and, while this side
// bridges the WiFi peer and the MCU, a copy of the line relayed on. Each
// parser (parsers.cpp) states only what is its own: its row, the kind of
// value, its texts and its relay.
//
// Every function here takes the parser's name and logs under it, so that
// each line of the log names the parser that field engineers grep for.
#ifndef ATCMD_PROTOCOL_REPLY_SHAPE_H
#define ATCMD_PROTOCOL_REPLY_SHAPE_H

#include <stddef.h>
#include <stdint.h>

#include "atcmdprocess.h"
#include "core/log.h"

namespace atcmd {

// Declared, never defined: reached only when a reply description below is
// given a log text that does not take that description's arguments, which
// makes the description's constant initialisation fail to compile.
const char *log_text_does_not_take_its_arguments();

constexpr const char *checked_text(const char *fmt, const char *want, const char *or_want = "") {
    return fmt == nullptr || has_conversions(fmt, want) || has_conversions(fmt, or_want)
               ? fmt
               : log_text_does_not_take_its_arguments();
}

constexpr int kNoRelay = -1;

enum ReplyOption : unsigned {
    kToClient = 1,        // the record's dest becomes the client (2) first
    kNotOnUartSide = 2,   // on platform 2 the line has no effect past its value
};

// One 64-bit number, read by getvalue_fromCmdString's rule. The value log
// is given the value, the row and the sequence number.
struct NumberReply {
    constexpr NumberReply(uint8_t row_, const char *value_log_, const char *error_,
                          int relay_ = kNoRelay, unsigned options_ = 0)
        : row(row_),
          value_log(checked_text(value_log_, "dd", "ddd")),
          error(error_),
          relay(relay_),
          options(options_) {}
    uint8_t row;
    const char *value_log;  // nullptr: none
    const char *error;
    int relay;
    unsigned options;
};

// A fixed count of 32-bit numbers read by one of the list extractors. The
// value log is given the numbers.
struct ListReply {
    constexpr ListReply(uint8_t row_, size_t count_, unsigned int (*read_)(const char *, int32_t *),
                        const char *value_log_, const char *error_, int relay_ = kNoRelay)
        : row(row_),
          count(count_),
          read(read_),
          value_log(checked_text(value_log_, count_ == 2 ? "dd" : count_ == 3 ? "ddd" : "dddddd")),
          error(error_),
          relay(relay_) {}
    uint8_t row;
    size_t count;  // at most 6
    unsigned int (*read)(const char *line, int32_t *out);
    const char *value_log;
    const char *error;
    int relay;
};

// The whole shape for a number: opening line, value, value log, client
// message, relay. False (after the error line) when the line has no value.
bool number_reply(const char *parser, AtCmder_t *cmd, const NumberReply &r,
                  const char *opens_as = nullptr);
// The same for a list of numbers.
bool list_reply(const char *parser, AtCmder_t *cmd, const ListReply &r);
// The same for a text of up to 159 characters, without a value log.
bool text_reply(const char *parser, AtCmder_t *cmd, uint8_t row, const char *error);

// The pieces, for parsers with rules of their own.

// "<opens_as or parser> source is %u, idx is %u data is %s".
void open_line(const char *parser, const AtCmder_t *cmd, int level = kLogDetail,
               const char *opens_as = nullptr);
// Clears field, then copies the value into it (cut to size). False, after
// the error line, when the line has no value.
bool read_field(const char *parser, const AtCmder_t *cmd, const char *error, char *field,
                size_t size);
// The client message about row, with the record's sequence number.
void notify(uint8_t row, const AtCmder_t *cmd, void *payload);
// While platform 2 casts over WiFi, the line goes to the other side as it
// came, as an unsolicited record (type 5, dest 1) with cmd_id.
void relay_when_bridging(const AtCmder_t *cmd, uint8_t cmd_id);
// A query that the accessory's MCU asks this side.
bool is_query_from_mcu(const AtCmder_t *cmd);
void error_line(const char *parser, const char *error);

}  // namespace atcmd

#endif
