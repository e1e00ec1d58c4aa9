// Test harness for velqora-convert: runs the tool as a process in a fresh temporary directory.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

extern char **environ;

namespace vqtt {

namespace fs = std::filesystem;

using Bytes = std::vector<uint8_t>;

struct Result {
    int exitCode;
    std::string out, err;
};

class ToolTest : public ::testing::Test {
protected:
    fs::path dir;
    void SetUp() override {
        std::string tmpl = (fs::temp_directory_path() / "vq-tool-XXXXXX").string();
        ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
        dir = tmpl;
    }
    void TearDown() override { fs::remove_all(dir); }

    std::string path(const std::string &name) const { return (dir / name).string(); }

    Result run(std::vector<std::string> args) const {
        args.insert(args.begin(), VELQORA_CONVERT);
        std::vector<char *> argv;
        for (std::string &a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        const std::string out = path(".stdout"), err = path(".stderr");
        posix_spawn_file_actions_t fa;
        posix_spawn_file_actions_init(&fa);
        posix_spawn_file_actions_addopen(&fa, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addopen(&fa, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        pid_t pid = 0;
        int status = -1;
        if (posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), environ) == 0) waitpid(pid, &status, 0);
        posix_spawn_file_actions_destroy(&fa);
        Result r{WIFEXITED(status) ? WEXITSTATUS(status) : -1, text(out), text(err)};
        fs::remove(out), fs::remove(err);
        return r;
    }

    static std::string text(const std::string &p) {
        std::ifstream f(p, std::ios::binary);
        return {std::istreambuf_iterator<char>(f), {}};
    }
    static Bytes bytes(const std::string &p) {
        const std::string t = text(p);
        return {t.begin(), t.end()};
    }
    static void write(const std::string &p, const Bytes &b) {
        std::ofstream(p, std::ios::binary).write(reinterpret_cast<const char *>(b.data()), std::streamsize(b.size()));
    }
    // Names in the test directory other than the inputs: outputs and anything left behind.
    std::vector<std::string> listing() const {
        std::vector<std::string> names;
        for (const auto &e : fs::directory_iterator(dir)) names.push_back(e.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
};

} // namespace vqtt
