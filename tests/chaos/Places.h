#ifndef TESTS_CHAOS_PLACES_H
#define TESTS_CHAOS_PLACES_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <poll.h>

#include "tests/support/InputEvent.h"

/// What is wrong with a device at the end; empty when nothing is.
std::string complaintOf(const Account& account, const std::string& device);

/// Settings files and an Android container's nodes in the hands of somebody else, who also reads the nodes. One thread.
class Places
{
public:
    /// \param folder of the settings files \param instance of the container
    Places(const std::string& folder, int instance);
    ~Places(); ///< the settings files stay
    Places(const Places&) = delete;
    Places& operator=(const Places&) = delete;

    /// \param how "absent", "file", "empty", "garbage", "huge", "fifo", "read fifo", "folder", "dangling link",
    /// "link to itself": stands there from now on; or "reader goes", "reader stops", "no permissions"
    void put(const std::string& name, const std::string& how);

    void addTo(std::vector<pollfd>& polled) const; ///< FIFOs that are being read
    void readFifos();

    uint64_t presses() const;

    /// What is wrong after the end with a node to which nothing happened; empty when nothing is.
    std::string complaint();

private:
    struct Place
    {
        std::string path = {};
        int reader = -1;
        bool reads = true;
        int changes = 0;
        Account account = {};
    };

    const std::string m_folder;
    const std::string m_container;
    std::map<std::string, Place> m_places;
};

#endif
