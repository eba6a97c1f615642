#include "tools/host/play/NetworkModel.h"

#include <cstdio>
#include <fstream>
#include <gmock/gmock.h>

#include <unistd.h>

namespace host
{
namespace
{

using ::testing::HasSubstr;

using Items = std::vector<NetworkModel::Item>;

/// A file of delays that lives as long as the object.
class DelayFile
{
public:
    explicit DelayFile(const std::string& content)
        : m_name(::testing::TempDir() + "delays." + std::to_string(getpid()))
    {
        std::ofstream(m_name) << content;
    }
    ~DelayFile() { std::remove(m_name.c_str()); }
    const std::string& name() const { return m_name; }

private:
    std::string m_name;
};

constexpr bool EVENT = false;
constexpr bool CONTROL = true;

TEST(NetworkModelTest, DecidesWhenEventsArrive)
{
    const DelayFile delays("# ms\n 5 \n0.5\n\n");
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
        {delays.name(), {6000, 6000, 8000, 8000, 8000, 10000}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(NetworkModel::parse(c.model, 1).arrivals(sent), c.arrivals) << c.model;
    EXPECT_TRUE(NetworkModel::parse("bursts:3", 1).arrivals({}).empty());
}

TEST(NetworkModelTest, JitterIsBoundedOrderedAndRepeatable)
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
        ASSERT_LE(arrivals[i], sent[i].sentUs + 4500);
        ASSERT_TRUE(i == 0 || arrivals[i] >= arrivals[i - 1]);
        longest = std::max(longest, arrivals[i] - sent[i].sentUs);
    }
    EXPECT_GT(longest, 4300) << "the whole range is used";
    EXPECT_EQ(model.arrivals(sent), arrivals);
    EXPECT_NE(NetworkModel::parse("jitter:4.5", 8).arrivals(sent), arrivals);
}

TEST(NetworkModelTest, RefusesWhatIsNoModel)
{
    struct Case
    {
        std::string model;
        std::string message;
    };
    const Case cases[] = {
        {"bursts:0", "expected bursts:N with N from 1"},
        {"bursts:-1", "expected bursts:N"},
        {"bursts:3x", "expected bursts:N"},
        {"bursts:", "expected bursts:N"},
        {"jitter:-1", "expected jitter:MS with MS from 0"},
        {"jitter:nan", "expected jitter:MS"},
        {"smooth", "expected even, bursts:N, jitter:MS"},
    };
    for (const Case& c : cases)
    {
        try
        {
            NetworkModel::parse(c.model, 1);
            ADD_FAILURE() << c.model;
        }
        catch (const NetworkModelError& error)
        {
            EXPECT_THAT(error.what(), HasSubstr(c.message));
        }
    }
}

TEST(NetworkModelTest, NamesTheLineOfABrokenDelay)
{
    const auto messageOf = [](const std::string& content) -> std::string
    {
        const DelayFile file(content);
        try
        {
            NetworkModel::parse(file.name(), 1);
        }
        catch (const NetworkModelError& error)
        {
            return error.what();
        }
        return "";
    };
    EXPECT_THAT(messageOf("1\n2x\n"), HasSubstr(":2: \"2x\" is no delay; expected milliseconds from 0"));
    EXPECT_THAT(messageOf("# nothing\n"), HasSubstr("holds no delay"));
}

} // namespace
} // namespace host
