// The program: what it takes, how it ends, what it says when something cannot be done.

#include "tools/pads/PadsProgram.h"
#include "tests/tools/pads/FakeNode.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/input.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using testing::HasSubstr;
using testing::StartsWith;

std::string contents(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

int exitCode(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class PadsProgramTest : public testing::Test
{
protected:
    PadsProgramTest()
    {
        std::filesystem::create_directory(m_options.directory);
        m_options.readyFile = m_directory.path / "ready";
    }

    /// Runs in a process of its own, which gets the signal once it is ready; what it says goes into the file "said".
    int run(int signal)
    {
        std::filesystem::remove(m_directory.path / "ready");
        std::fflush(nullptr); // else the child would say it again
        const pid_t child = fork();
        if (child == 0)
        {
            alarm(10); // should no signal end it
            const int output = open(said().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(output, STDOUT_FILENO);
            dup2(output, STDERR_FILENO);
            _exit(pads::runPads(m_options));
        }
        int status = 0;
        bool told = false;
        while (waitpid(child, &status, WNOHANG) == 0)
        {
            if (!told && std::filesystem::exists(m_directory.path / "ready"))
                told = kill(child, signal) == 0;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return exitCode(status);
    }

    std::string said() const { return m_directory.path / "said"; }

    TemporaryDirectory m_directory;
    pads::PadsOptions m_options{.png = {}, .record = {}, .readyFile = {}, .directory = m_directory.path / "input"};
};

TEST_F(PadsProgramTest, EndsWithASignalAndLeavesItsFiles)
{
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
    {
        m_options.record = m_directory.path / "record";
        m_options.png = m_directory.path / "picture";
        EXPECT_EQ(run(signal), 0) << contents(said());
        EXPECT_EQ(contents(said()), "");
        EXPECT_TRUE(std::filesystem::exists(m_options.record));
        EXPECT_THAT(contents(m_options.png), StartsWith("\x89PNG"));
    }
    for (const bool quiet : {false, true})
    {
        m_options.quiet = quiet;
        std::filesystem::remove(m_directory.path / "input/event0");
        const FakeNode pad(m_directory.path / "input/event0");
        pad.put(EV_KEY, BTN_A, 1);
        EXPECT_EQ(run(SIGTERM), 0);
        EXPECT_EQ(contents(said()), quiet ? "" : "pad 0: Pad (0003:045e:0000:0000, event0)\n");
        EXPECT_THAT(contents(m_options.record), HasSubstr("BTN_SOUTH"));
    }
}

TEST_F(PadsProgramTest, WhatCannotBeDoneIsSaid)
{
    struct Row
    {
        std::string pads::PadsOptions::*option;
        const char* value;
        const char* message;
    };
    using Options = pads::PadsOptions;
    for (const Row& row : {
             Row{&Options::record, "/nonexistent/r", "cannot write the record /nonexistent/r: No such file"},
             Row{&Options::record, "/dev/full", "the record /dev/full could not be written completely\n"},
             Row{&Options::png, "/nonexistent/p", "cannot write the picture /nonexistent/p: "},
             Row{&Options::readyFile, "/nonexistent/f", "cannot create /nonexistent/f: No such file"},
             Row{&Options::directory, "/nonexistent/d", "cannot watch /nonexistent/d: No such file"},
         })
    {
        const Options before = m_options;
        m_options.quiet = true;
        m_options.*row.option = row.value;
        std::filesystem::remove(m_directory.path / "input/event0");
        const FakeNode pad(m_directory.path / "input/event0");
        EXPECT_EQ(run(SIGTERM), 1) << row.message;
        EXPECT_THAT(contents(said()), StartsWith(std::string("zuis-pads: ") + row.message));
        m_options = before;
    }
}

TEST_F(PadsProgramTest, ReadsItsCommandLine)
{
    struct Row
    {
        const char* arguments;
        int code;
        const char* message;
    };
    for (const Row& row : {
             Row{"--help", 0, "--ready-file FILE"},
             Row{"--nonsense", 109, "--nonsense"},
             Row{"--record", 114, "--record: 1 required FILE missing"},
             Row{"--quiet --record /nonexistent/r", 1, "cannot write the record /nonexistent/r"},
         })
    {
        const std::string command = std::string(ZUIS_PADS_PATH) + " " + row.arguments + " >" + said() + " 2>&1";
        EXPECT_EQ(exitCode(std::system(command.c_str())), row.code) << row.arguments;
        EXPECT_THAT(contents(said()), HasSubstr(row.message));
    }
}

} // namespace
