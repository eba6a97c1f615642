// The program: what it takes, how it ends, what it writes, what it says when something cannot be done.

#include "tools/pads/PadsProgram.h"
#include "tests/tools/Child.h"
#include "tests/tools/Files.h"
#include "tests/tools/pads/FakeNode.h"

#include <gmock/gmock.h>
#include <linux/input.h>

namespace
{

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class PadsProgramTest : public testing::Test
{
protected:
    PadsProgramTest()
    {
        std::filesystem::create_directory(m_options.directory);
        m_options.readyFile = m_directory.path / "ready";
    }

    /// Runs over a pad of this name with a pressed button. It gets the signal once it is ready.
    int run(int signal, const std::string& name = "Pad")
    {
        std::filesystem::remove(m_directory.path / "ready");
        std::filesystem::remove(m_directory.path / "input/event0");
        const FakeNode pad(m_directory.path / "input/event0", name);
        pad.put(EV_KEY, BTN_A, 1);
        pad.put(EV_SYN, SYN_DROPPED, 0);
        pad.put(EV_KEY, BTN_9 + 5, 0); // a code without a name
        Child child(m_said, [&] { return pads::runPads(m_options); });
        eventually([&] { return std::filesystem::exists(m_directory.path / "ready") || child.ended(); });
        return child.end(signal);
    }

    TemporaryDirectory m_directory;
    const std::string m_said = m_directory.path / "said";
    pads::PadsOptions m_options{.png = {}, .record = {}, .readyFile = {}, .directory = m_directory.path / "input"};
};

TEST_F(PadsProgramTest, EndsWithASignalAndLeavesItsFiles)
{
    m_options.record = m_directory.path / "record";
    const std::string overrun = "zuis-pads: pad 0: the kernel dropped events, this reader was too slow\n";
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
    {
        m_options.quiet = signal == SIGINT;
        m_options.png = m_options.quiet ? "" : m_directory.path / "picture";
        const std::string name = m_options.quiet ? "a \"pad\" \xff" : "Pad";
        EXPECT_EQ(run(signal, name), 0);
        EXPECT_EQ(contents(m_said), (m_options.quiet ? "" : "pad 0: Pad (0003:045e:0000:0000, event0)\n") + overrun);
        EXPECT_THAT(contents(m_directory.path / "picture"), StartsWith("\x89PNG"));
        const std::string shown = m_options.quiet ? R"re(a \\"pad\\" �)re" : "Pad";
        EXPECT_THAT(contents(m_options.record),
                    MatchesRegex(R"re(\{"event":"pad-added","t":[1-9][0-9]*,"pad":0,"name":")re" + shown
                                 + R"re(","id":"0003:045e:0000:0000","node":"event0"\}
\{"event":"pad-input","t":5000007000,"pad":0,"type":1,"code":304,"name":"BTN_SOUTH","value":1\}
\{"event":"pad-overrun","t":[1-9][0-9]*,"pad":0\}
\{"event":"pad-input","t":5000007000,"pad":0,"type":1,"code":270,"name":"","value":0\}
)re"));
    }
}

TEST_F(PadsProgramTest, WhatCannotBeDoneIsSaid)
{
    using Options = pads::PadsOptions;
    struct Row
    {
        std::string Options::*option;
        const char* value;
        const char* message;
    };
    m_options.quiet = true;
    for (const Row& row : {
             Row{&Options::record, "/nonexistent/r", "cannot write the record /nonexistent/r: No such file"},
             Row{&Options::record, "/dev/full", "the record /dev/full could not be written completely\n"},
             Row{&Options::png, "/nonexistent/p", "cannot write the picture /nonexistent/p: "},
             Row{&Options::readyFile, "/nonexistent/f", "cannot create /nonexistent/f: No such file"},
             Row{&Options::directory, "/nonexistent/d", "cannot watch /nonexistent/d: No such file"},
         })
    {
        const Options before = m_options;
        m_options.*row.option = row.value;
        EXPECT_EQ(run(SIGTERM), 1) << row.message;
        EXPECT_THAT(contents(m_said), HasSubstr(std::string("zuis-pads: ") + row.message));
        m_options = before;
    }
}

TEST_F(PadsProgramTest, ReadsItsCommandLine)
{
    struct Row
    {
        std::vector<std::string> words;
        int code;
        const char* message;
    };
    for (Row row : {
             Row{{"--help"}, 0, "--ready-file FILE"},
             Row{{"--nonsense"}, 109, "--nonsense"},
             Row{{"--record"}, 114, "--record: 1 required FILE missing"},
             Row{{"--quiet", "--record", "/nonexistent/r"}, 1, "cannot write the record /nonexistent/r"},
         })
    {
        row.words.insert(row.words.begin(), ZUIS_PADS_PATH);
        EXPECT_EQ(Child(m_said, row.words).end(), row.code) << row.message;
        EXPECT_THAT(contents(m_said), HasSubstr(row.message));
    }
}

} // namespace
