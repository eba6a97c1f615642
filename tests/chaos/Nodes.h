#ifndef TESTS_CHAOS_NODES_H
#define TESTS_CHAOS_NODES_H

#include "tests/chaos/Plan.h"
#include "tests/support/Account.h"

#include <string>
#include <vector>

#include <poll.h>

/// What is wrong with a device at the end; empty when nothing is.
std::string complaintOf(const Account& account, const std::string& device);

/// An Android container's nodes and their reader, who may do them harm. Removed with the object.
class Nodes
{
public:
    Nodes(int instance, const std::vector<NodeForm>& forms);
    ~Nodes();
    Nodes(const Nodes&) = delete;
    Nodes& operator=(const Nodes&) = delete;

    void harm(int node, NodeHarm how);

    void addTo(std::vector<pollfd>& polled) const; ///< FIFOs that are being read
    void readFifos();

    uint64_t presses() const;

    /// What is wrong after the end with a node that nobody harmed; empty when nothing is.
    std::string complaint();

private:
    struct Node
    {
        std::string path;
        NodeForm form{};
        int reader = -1;
        bool reads = true;
        bool harmed = false;
        Account account;
    };

    static void make(Node& node);
    static void dismiss(Node& node);
    static bool readsMeanwhile(const Node& node);
    static void read(Node& node); // of a file only at the end: until then its last event may be half written

    std::string m_folder;
    std::vector<Node> m_nodes;
};

#endif
