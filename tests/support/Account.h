#ifndef TESTS_SUPPORT_ACCOUNT_H
#define TESTS_SUPPORT_ACCOUNT_H

#include <cstdint>
#include <set>

#include <linux/input.h>

/// Keeps account of what is down on one device.
class Account
{
public:
    void take(unsigned int type, unsigned int code, int value)
    {
        if (type != EV_KEY)
            return;
        if (value == 0)
        {
            m_down.erase(code);
            return;
        }
        m_down.insert(code);
        ++m_presses;
    }
    const std::set<unsigned int>& down() const { return m_down; }
    uint64_t presses() const { return m_presses; }

private:
    std::set<unsigned int> m_down;
    uint64_t m_presses = 0;
};

#endif
