// The host property store: Android's rules, why a set is refused, and one store
// for every process under the same root (the tools: tools/props/check_tools.sh).
#include <cutils/properties.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "platform/property_errors.h"
#include "platform/property_store.h"
#include "platform/sysroot.h"

namespace {

// Runs body in a forked child, whose exit code is body's return value.
template <class F>
pid_t spawn(F body) {
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) _exit(body());
    return pid;
}

int exit_code(pid_t pid) {
    int status = 0;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Properties, AndroidRulesForDefaultsLimitsAndReadOnlyKeys) {
    char v[PROPERTY_VALUE_MAX];
    EXPECT_EQ(1, property_get("test.unset", v, "N"));
    EXPECT_STREQ("N", v);
    EXPECT_EQ(0, property_get("test.unset", v, nullptr));
    ASSERT_EQ(0, property_set("test.empty", ""));
    EXPECT_EQ(3, property_get("test.empty", v, "def")) << "an empty value reads as unset";
    EXPECT_EQ(91, property_get("test.unset", v, std::string(200, 'd').c_str()));
    for (std::string key : {std::string("persist.vendor.kavren.factory.wt"), std::string(255, 'k')})
        EXPECT_TRUE(property_set(key.c_str(), "x") == 0 && property_get(key.c_str(), v, "") == 1);
    const std::string bad_keys[] = {"", ".", "..", ".k", "a/b", std::string(256, 'k')};  // file names
    for (const std::string &bad : bad_keys)
        EXPECT_EQ(atcmd::kPropertyBadKey, property_set(bad.c_str(), "x")) << bad;
    EXPECT_EQ(0, property_set("test.long", std::string(91, 'v').c_str()));
    EXPECT_EQ(atcmd::kPropertyValueTooLong, property_set("test.long", std::string(92, 'v').data()));
    EXPECT_EQ(91, property_get("test.long", v, nullptr)) << "a refused set keeps the old value";
    EXPECT_EQ(0, property_set("ro.test.once", "1.0"));
    EXPECT_EQ(atcmd::kPropertyReadOnly, property_set("ro.test.once", "2.0"));
    EXPECT_EQ(3, property_get("ro.test.once", v, nullptr));
    EXPECT_STREQ("1.0", v);
    for (const auto &e : std::filesystem::directory_iterator(
             std::string(getenv("ATCMD_SYSROOT")) + "/dev/__properties__"))
        EXPECT_NE('.', e.path().filename().string()[0]) << "temporary left: " << e.path();
}

// Without a root, /sdcard and the store move into the user's state directory;
// other paths stay real. In a child, whose environment changes die with it.
TEST(Properties, WithoutARootSdcardAndTheStoreMoveIntoTheStateDirectory) {
    pid_t child = spawn([] {
        const struct { const char *state, *in, *out; } rows[] = {
            {"/st", "/sdcard/tavrinola/.log", "/st/atcmd/sdcard/tavrinola/.log"},
            {"", "/sdcard/x", "/h/.local/state/atcmd/sdcard/x"},
            {"/st", "/sdcardx", "/sdcardx"},
            {"/st", "/dev/fd/0", "/dev/fd/0"},
        };
        char out[PATH_MAX];
        unsetenv("ATCMD_SYSROOT"), setenv("HOME", "/h", 1);
        for (const auto &r : rows)
            EXPECT_STREQ(r.out, (setenv("XDG_STATE_HOME", r.state, 1),
                                 atcmd::resolve_path(r.in, out, sizeof out))) << r.in;
        EXPECT_STREQ("/st/atcmd/properties", atcmd::property_dir(out, sizeof out));
        setenv("ATCMD_PROPERTY_DIR", "/dev/null/p", 1);  // a store that cannot be made
        EXPECT_EQ(-ENOTDIR, property_set("k", ""));
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(0, exit_code(child)) << "the child's failures are above";
}

TEST(Properties, ProcessesUnderOneRootShareOneStore) {
    int go[2];
    ASSERT_EQ(0, pipe(go));
    pid_t reader = spawn([&] {  // forked before the set: only the store can tell it
        char c, r[PROPERTY_VALUE_MAX];
        return read(go[0], &c, 1) != 1 || property_get("test.shared", r, "") != 6;
    });
    EXPECT_EQ(0, property_set("test.shared", "parent"));
    EXPECT_EQ(1, write(go[1], "x", 1));
    EXPECT_EQ(0, exit_code(reader));
    close(go[0]), close(go[1]);
}

TEST(Properties, ConcurrentWritersNeverShowATornValue) {
    const std::string a(60, 'a'), b(60, 'b');
    ASSERT_EQ(0, property_set("test.race", a.c_str()));
    auto writer = [](const char *value) {  // exits 0 when all 500 sets took
        return spawn([=] {
            for (int i = 0; i < 500; ++i)
                if (property_set("test.race", value) != 0) return 1;
            return 0;
        });
    };
    pid_t wa = writer(a.c_str()), wb = writer(b.c_str());
    char v[PROPERTY_VALUE_MAX];
    int torn = 0;
    for (int i = 0; i < 2000; ++i)
        torn += property_get("test.race", v, "") != 60 || (v != a && v != b);
    EXPECT_EQ(0, exit_code(wa) | exit_code(wb));
    EXPECT_EQ(0, torn);
}

}  // namespace
