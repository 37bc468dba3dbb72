#include "protocol/reply_effects.h"

#include "core/log.h"
#include "core/relaxed.h"

namespace atcmd {
namespace {

const ReplyEffects *g_effects = nullptr;

}  // namespace

void set_reply_effects(const ReplyEffects *effects) { publish(&g_effects, effects); }

const ReplyEffects *reply_effects(const char *parser) {
    const ReplyEffects *effects = acquire_load(&g_effects);
    if (effects == nullptr)
        ATLOGE_FN(parser, kLogAlways, kTagParse, "no reply effects registered, effect skipped");
    return effects;
}

}  // namespace atcmd
