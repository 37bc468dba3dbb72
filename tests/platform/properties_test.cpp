// The host property store: Android's rules, and one store for every process
// under the same root (where it lives is checked by tools/props/check_tools.sh).
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

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
    EXPECT_EQ(0, property_set(std::string(31, 'k').c_str(), "x"));
    EXPECT_EQ(-1, property_set(std::string(32, 'k').c_str(), "x"));
    for (const char *bad : {"", ".", "..", ".k", "a/b"})  // keys are file names
        EXPECT_EQ(-1, property_set(bad, "x")) << bad;
    EXPECT_EQ(0, property_set("test.long", std::string(91, 'v').c_str()));
    EXPECT_EQ(-1, property_set("test.long", std::string(92, 'v').c_str()));
    EXPECT_EQ(91, property_get("test.long", v, nullptr)) << "a refused set keeps the old value";
    EXPECT_EQ(0, property_set("ro.test.once", "1.0"));
    EXPECT_EQ(-1, property_set("ro.test.once", "2.0"));
    EXPECT_EQ(3, property_get("ro.test.once", v, nullptr));
    EXPECT_STREQ("1.0", v);
    for (const auto &e : std::filesystem::directory_iterator(
             std::string(getenv("ATCMD_SYSROOT")) + "/dev/__properties__"))
        EXPECT_NE('.', e.path().filename().string()[0]) << "temporary left: " << e.path();
}

TEST(Properties, ProcessesUnderOneRootShareOneStore) {
    EXPECT_EQ(0, exit_code(spawn([] {
        return property_set("test.shared", "child") | property_set("ro.test.child", "A");
    })));
    char v[PROPERTY_VALUE_MAX];
    EXPECT_EQ(5, property_get("test.shared", v, nullptr));
    EXPECT_EQ(-1, property_set("ro.test.child", "B"));
    EXPECT_EQ(1, property_get("ro.test.child", v, nullptr));
    EXPECT_STREQ("A", v);
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
