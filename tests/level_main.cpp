// Test main that runs a test program at one vector level: `--vq-level=scalar|avx2|avx512|neon` (the
// default is the best level of the machine). A level the machine lacks skips every test.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

#include "simd/dispatch.h"
#include "velqora.h"

namespace {

class SkipAll : public ::testing::Environment {
public:
    explicit SkipAll(const char *name) : name_(name) {}
    void SetUp() override { GTEST_SKIP() << "this machine has no " << name_ << " level"; }

private:
    const char *name_;
};

} // namespace

int main(int argc, char **argv) {
    ::testing::InitGoogleTest(&argc, argv);
    bool skipped = false;
    for (int i = 1; i < argc; ++i) {
        const char *prefix = "--vq-level=";
        if (std::strncmp(argv[i], prefix, std::strlen(prefix)) != 0) continue;
        const char *name = argv[i] + std::strlen(prefix);
        vq::simd::Level level;
        if (!vq::simd::levelFromName(name, &level)) {
            std::fprintf(stderr, "unknown level %s\n", name);
            return 2;
        }
        if (!vq::simd::forceLevel(level)) {
            ::testing::AddGlobalTestEnvironment(new SkipAll(name));
            skipped = true;
        }
    }
    // Which level ran, so that a log of runs on several machines shows that every level ran somewhere.
    if (!::testing::GTEST_FLAG(list_tests))
        std::fprintf(stderr, "vector level: %s%s (this machine's best: %s)\n", vqpVectorLevel(),
                     skipped ? ", the level asked for is missing: tests skipped" : "",
                     vq::simd::levelName(vq::simd::bestLevel()));
    return RUN_ALL_TESTS();
}
