#include "sim/traffic.h"

#include <random>

namespace atsim {

namespace {

// "%d" fields of a line template are filled with small random numbers, so
// that lines differ in length and digits the way live traffic does.
std::string fill(const char *pattern, std::mt19937 &rng) {
    std::uniform_int_distribution<int> value(0, 4200);
    std::string out;
    for (const char *p = pattern; *p != '\0'; ++p) {
        if (p[0] == '%' && p[1] == 'd') {
            out += std::to_string(value(rng));
            ++p;
        } else {
            out += *p;
        }
    }
    return out + "\r\n";
}

std::vector<std::string> draw(const std::vector<const char *> &patterns, uint32_t seed,
                              size_t count) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<size_t> pick(0, patterns.size() - 1);
    std::vector<std::string> lines;
    lines.reserve(count);
    for (size_t i = 0; i < count; ++i) lines.push_back(fill(patterns[pick(rng)], rng));
    return lines;
}

}  // namespace

std::vector<std::string> typical_lines(uint32_t seed, size_t count) {
    static const std::vector<const char *> kPatterns = {
        "+BATCG=%d,1,%d,%d,1,0",
        "+HRM=%d,%d",
        "+HALLCG=1,0,%d",
        "+BAT=%d,1,%d,%d,1,0#9&1",
        "+VER=MCU:1.0.%d,BT:2.1,WIFI:3.3,AML:V20231105_user,TP:7,CAM:8,BOOT:9#11&1",
        "+SN=KV5816A%d#13&1",
        "+SID=SID-%d#14&1",
        "+TYPE=KM5816W#15&1",
        "+STATE=ACTIVE#10&1",
        "+USBSTATE=1,3#16&1",
        "+SCREEN=%d#17&1",
        "+OK#%d&1",
        "+ACC=%d,%d,%d",
        "+LIGHT=%d",
        "AT+STATE?#%d&2",
        "AT+VER?#%d&2",
        "AT+BTMAC=AA:BB:CC:DD:EE:%d#%d&2",
    };
    return draw(kPatterns, seed, count);
}

std::vector<std::string> last_row_lines(uint32_t seed, size_t count) {
    static const std::vector<const char *> kPatterns = {
        "+WT=%d#%d&1",  "+PT=%d#%d&1",   "+MMI1=%d#%d&1",   "+HRM=%d,%d",
        "+DTR=%d",      "AT+WT?#%d&2",   "AT+PT=%d#%d&2",   "AT+MMI1?#%d&2",
        "AT+DTR=%d",    "+TEST=%d#%d&1", "AT+PTEST=%d#%d&2", "+HALLCG=%d,0,0",
    };
    return draw(kPatterns, seed, count);
}

std::vector<std::string> pack_batches(const std::vector<std::string> &lines, size_t max_bytes) {
    std::vector<std::string> batches;
    std::string batch;
    for (const std::string &line : lines) {
        if (!batch.empty() && batch.size() + line.size() > max_bytes) {
            batches.push_back(batch);
            batch.clear();
        }
        batch += line;
    }
    if (!batch.empty()) batches.push_back(batch);
    return batches;
}

}  // namespace atsim
