#include "tests/chaos/Nodes.h"

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

namespace
{

constexpr int PIPE_BYTES = 1 << 20; // so that a reader that is late for a moment has missed nothing

} // namespace

std::string complaintOf(const Account& account, const std::string& device)
{
    if (account.down().empty())
        return {};
    return fmt::format("expected every press on {} to have its release, found down: {}", device,
                       fmt::join(account.down(), " "));
}

Nodes::Nodes(int instance, const std::vector<NodeForm>& forms)
    : m_folder("/tmp/zudroid" + std::to_string(instance))
{
    std::filesystem::create_directories(m_folder + "/input");
    for (size_t i = 0; i < forms.size(); ++i)
    {
        Node& node = m_nodes.emplace_back();
        node.path = m_folder + "/input/zuinput_" + NODE_NAMES[i];
        node.form = forms[i];
        node.harmed = forms[i] > NodeForm::FIFO;
        make(node);
    }
}

Nodes::~Nodes()
{
    for (Node& node : m_nodes)
        dismiss(node);
    std::filesystem::remove_all(m_folder);
}

void Nodes::make(Node& node)
{
    const char* const path = node.path.c_str();
    switch (node.form)
    {
    case NodeForm::PLAIN_FILE:
        std::ofstream{node.path};
        node.reader = open(path, O_RDONLY | O_CLOEXEC);
        return;
    case NodeForm::FIFO:
    case NodeForm::FIFO_WITHOUT_READER:
        if (mkfifo(path, 0600) != 0)
            throw std::runtime_error("no FIFO at " + node.path);
        if (node.form == NodeForm::FIFO_WITHOUT_READER)
            return;
        node.reader = open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC); // never at the end of the file
        fcntl(node.reader, F_SETPIPE_SZ, PIPE_BYTES);
        return;
    case NodeForm::ABSENT:
        return;
    case NodeForm::FOLDER:
        std::filesystem::create_directory(node.path);
        return;
    }
}

void Nodes::dismiss(Node& node)
{
    if (node.reader >= 0)
        close(std::exchange(node.reader, -1));
}

void Nodes::harm(int number, NodeHarm how)
{
    Node& node = m_nodes.at(static_cast<size_t>(number));
    node.harmed = true;
    switch (how)
    {
    case NodeHarm::REMOVED:
        std::filesystem::remove_all(node.path);
        return;
    case NodeHarm::FILE_INSTEAD:
    case NodeHarm::FIFO_INSTEAD:
        dismiss(node);
        std::filesystem::remove_all(node.path);
        node.form = how == NodeHarm::FILE_INSTEAD ? NodeForm::PLAIN_FILE : NodeForm::FIFO;
        return make(node);
    case NodeHarm::READER_GOES:
        return dismiss(node);
    case NodeHarm::READER_STOPS:
        node.reads = false;
        return;
    case NodeHarm::NO_PERMISSIONS:
        chmod(node.path.c_str(), 0);
        return;
    }
}

bool Nodes::readsMeanwhile(const Node& node)
{
    return node.form == NodeForm::FIFO && node.reader >= 0 && node.reads;
}

void Nodes::addTo(std::vector<pollfd>& polled) const
{
    for (const Node& node : m_nodes)
        if (readsMeanwhile(node))
            polled.push_back({node.reader, POLLIN, 0});
}

void Nodes::readFifos()
{
    for (Node& node : m_nodes)
        if (readsMeanwhile(node))
            read(node);
}

void Nodes::read(Node& node)
{
    input_event events[1024];
    for (ssize_t size; (size = ::read(node.reader, events, sizeof(events))) > 0;)
        for (size_t i = 0; i < static_cast<size_t>(size) / sizeof(input_event); ++i)
            node.account.take(events[i].type, events[i].code, events[i].value);
}

uint64_t Nodes::presses() const
{
    uint64_t presses = 0;
    for (const Node& node : m_nodes)
        presses += node.account.presses();
    return presses;
}

std::string Nodes::complaint()
{
    for (Node& node : m_nodes)
    {
        // A touch screen ends with what is down on it, as one of uinput does.
        if (node.harmed || node.path.ends_with("touch"))
            continue;
        read(node);
        if (std::string complaint = complaintOf(node.account, node.path); !complaint.empty())
            return complaint;
    }
    return {};
}
