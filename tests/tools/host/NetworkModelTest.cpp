#include "tools/host/play/NetworkModel.h"

#include "tests/tools/Files.h"
#include "tests/tools/host/Sessions.h"

namespace host
{
namespace
{

using ::testing::HasSubstr;

using Items = std::vector<NetworkModel::Item>;

constexpr bool EVENT = false;
constexpr bool CONTROL = true;

class NetworkModelTest : public ::testing::Test
{
protected:
    /// The name of a file with these delays, which is a model, too.
    std::string delays(const std::string& content) const
    {
        std::string name = m_directory.path / "delays";
        std::ofstream(name) << content;
        return name;
    }

    TemporaryDirectory m_directory;
};

TEST_F(NetworkModelTest, DecidesWhenEventsArrive)
{
    const Items sent{{1000, EVENT}, {2000, EVENT}, {3000, EVENT}, {3500, CONTROL}, {4000, EVENT}, {5000, EVENT}};
    struct Case
    {
        std::string model;
        std::vector<int64_t> arrivals;
    };
    const Case cases[] = {
        {"even", {1000, 2000, 3000, 3500, 4000, 5000}},
        {"jitter:0", {1000, 2000, 3000, 3500, 4000, 5000}},
        {"bursts:1", {1000, 2000, 3000, 3500, 4000, 5000}},
        // A control record closes a burst early, and the next begins behind it; so does the end.
        {"bursts:2", {2000, 2000, 3000, 3500, 5000, 5000}},
        {"bursts:4", {3000, 3000, 3000, 3500, 5000, 5000}},
        // Nothing overtakes; control waits for what was sent before it.
        {delays("# ms\n 5 \n0.5\n0\n"), {6000, 6000, 6000, 6000, 9000, 9000}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(NetworkModel::parse(c.model, 1).arrivals(sent), c.arrivals) << c.model;
    EXPECT_TRUE(NetworkModel::parse("bursts:3", 1).arrivals({}).empty());
}

TEST_F(NetworkModelTest, JitterIsBoundedOrderedAndRepeatable)
{
    Items sent;
    for (int64_t i = 0; i < 2000; ++i)
        sent.push_back({i * 1000, EVENT});
    const NetworkModel model = NetworkModel::parse("jitter:4.5", 7);
    const std::vector<int64_t> arrivals = model.arrivals(sent);
    int64_t longest = 0;
    for (size_t i = 0; i < sent.size(); ++i)
    {
        ASSERT_GE(arrivals[i], sent[i].sentUs);
        longest = std::max(longest, arrivals[i] - sent[i].sentUs);
    }
    EXPECT_TRUE(std::is_sorted(arrivals.begin(), arrivals.end()));
    EXPECT_GT(longest, 4300) << "the whole range is used";
    EXPECT_LE(longest, 4500);
    EXPECT_EQ(model.arrivals(sent), arrivals);
    EXPECT_NE(NetworkModel::parse("jitter:4.5", 8).arrivals(sent), arrivals);
}

TEST_F(NetworkModelTest, RefusesWhatIsNoModel)
{
    const std::string bursts = "\": expected bursts:N with N from 1 to 100000";
    const std::string jitter = "\": expected jitter:MS with MS from 0 to 60000";
    const std::pair<std::string, std::string> cases[] = {
        {"bursts:0", bursts},   {"bursts:100001", bursts},
        {"bursts:3x", bursts},  {"bursts:", bursts},
        {"jitter:-1", jitter},  {"jitter:60000.1", jitter},
        {"jitter:nan", jitter}, {"smooth", "expected even, bursts:N, jitter:MS"},
    };
    for (const auto& [model, message] : cases)
        EXPECT_THAT(thrown([&name = model] { NetworkModel::parse(name, 1); }), HasSubstr(message)) << model;
    const std::string file = delays("");
    const auto mistake = [&](const std::string& content)
    { return thrown([&] { NetworkModel::parse(delays(content), 1); }); };
    EXPECT_EQ(mistake("1\n2x\n"), file + ":2: \"2x\" is no delay; expected milliseconds from 0 to 60000");
    EXPECT_EQ(mistake("# nothing\n"), file + ": holds no delay; expected one per line, in milliseconds");
}

} // namespace
} // namespace host
