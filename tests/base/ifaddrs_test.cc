#include "base/ifaddrs.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_addr.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

std::string text(const sockaddr* address) {
    char buf[INET6_ADDRSTRLEN] = {};
    if (address->sa_family == AF_INET) {
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, buf,
                  sizeof(buf));
    } else {
        inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, buf,
                  sizeof(buf));
    }
    return buf;
}

std::string mask(int family, int prefix) {
    VOLUT::ifaddrs entry{};
    if (VOLUT::make_prefixes(&entry, family, prefix) != 0)
        return "fail";
    std::string out = text(entry.ifa_netmask);
    std::free(entry.ifa_netmask);
    return out;
}

// Builds netlink datagrams the way the kernel lays them out.
class Datagram {
public:
    void address(int family, unsigned int index, int prefix, const void* addr, size_t len) {
        size_t start = bytes_.size();
        nlmsghdr h{};
        h.nlmsg_type = RTM_NEWADDR;
        ifaddrmsg m{};
        m.ifa_family = static_cast<unsigned char>(family);
        m.ifa_prefixlen = static_cast<unsigned char>(prefix);
        m.ifa_index = index;
        append(&h, sizeof(h));
        append(&m, sizeof(m));
        rtattr local{};  // an attribute that is skipped
        local.rta_len = RTA_LENGTH(len);
        local.rta_type = IFA_LOCAL;
        append(&local, sizeof(local));
        append(addr, len);
        rtattr a{};
        a.rta_len = RTA_LENGTH(len);
        a.rta_type = IFA_ADDRESS;
        append(&a, sizeof(a));
        append(addr, len);
        setLength(start);
    }
    void control(uint16_t type) {
        size_t start = bytes_.size();
        nlmsghdr h{};
        h.nlmsg_type = type;
        append(&h, sizeof(h));
        int32_t error = 0;
        append(&error, sizeof(error));
        setLength(start);
    }
    std::vector<unsigned char>& bytes() { return bytes_; }

private:
    void append(const void* p, size_t n) {
        auto* c = static_cast<const unsigned char*>(p);
        bytes_.insert(bytes_.end(), c, c + n);
        while (bytes_.size() % 4)
            bytes_.push_back(0);
    }
    void setLength(size_t start) {
        uint32_t len = static_cast<uint32_t>(bytes_.size() - start);
        std::memcpy(&bytes_[start], &len, sizeof(len));
    }
    std::vector<unsigned char> bytes_;
};

}  // namespace

TEST(IfaddrsTest, FindsLoopbackOnThisMachine) {
    VOLUT::ifaddrs* list = nullptr;
    ASSERT_EQ(VOLUT::getifaddrs(&list), 0);
    bool found = false;
    for (auto* e = list; e; e = e->ifa_next) {
        ASSERT_NE(e->ifa_name, nullptr);
        ASSERT_NE(e->ifa_addr, nullptr);
        ASSERT_NE(e->ifa_netmask, nullptr);
        EXPECT_EQ(e->ifa_addr->sa_family, e->ifa_netmask->sa_family);
        if (std::string(e->ifa_name) == "lo" && e->ifa_addr->sa_family == AF_INET) {
            EXPECT_EQ(text(e->ifa_addr), "127.0.0.1");
            EXPECT_EQ(text(e->ifa_netmask), "255.0.0.0");
            EXPECT_TRUE(e->ifa_flags & IFF_LOOPBACK);
            EXPECT_TRUE(e->ifa_flags & IFF_UP);
            found = true;
        }
    }
    EXPECT_TRUE(found);
    VOLUT::freeifaddrs(list);
    VOLUT::freeifaddrs(nullptr);
    EXPECT_EQ(VOLUT::getifaddrs(nullptr), -1);
}

TEST(IfaddrsTest, PrefixesBecomeNetmasks) {
    EXPECT_EQ(mask(AF_INET, 24), "255.255.255.0");
    EXPECT_EQ(mask(AF_INET, 0), "0.0.0.0");
    EXPECT_EQ(mask(AF_INET, 32), "255.255.255.255");
    EXPECT_EQ(mask(AF_INET, 20), "255.255.240.0");
    EXPECT_EQ(mask(AF_INET, 40), "255.255.255.255");  // clamped
    EXPECT_EQ(mask(AF_INET6, 128), "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
    EXPECT_EQ(mask(AF_INET6, 64), "ffff:ffff:ffff:ffff::");
    EXPECT_EQ(mask(AF_INET6, 0), "::");
    EXPECT_EQ(mask(AF_UNIX, 8), "fail");
}

TEST(IfaddrsTest, ParsesCraftedDatagram) {
    unsigned int lo = if_nametoindex("lo");
    ASSERT_NE(lo, 0u);
    in_addr v4{};
    inet_pton(AF_INET, "192.168.1.20", &v4);
    in6_addr v6{};
    inet_pton(AF_INET6, "fd00::5", &v6);
    Datagram d;
    d.address(AF_INET, lo, 24, &v4, sizeof(v4));
    d.address(AF_INET6, lo, 64, &v6, sizeof(v6));
    d.address(AF_UNIX, lo, 8, &v4, sizeof(v4));  // other families are skipped

    VOLUT::ifaddrs* head = nullptr;
    VOLUT::ifaddrs* tail = nullptr;
    ASSERT_EQ(VOLUT::parse_netlink_messages(d.bytes().data(), d.bytes().size(), &head, &tail), 0);
    Datagram done;
    done.control(NLMSG_DONE);
    EXPECT_EQ(VOLUT::parse_netlink_messages(done.bytes().data(), done.bytes().size(), &head, &tail),
              1);
    ASSERT_NE(head, nullptr);
    EXPECT_STREQ(head->ifa_name, "lo");
    EXPECT_EQ(text(head->ifa_addr), "192.168.1.20");
    EXPECT_EQ(text(head->ifa_netmask), "255.255.255.0");
    ASSERT_NE(head->ifa_next, nullptr);
    EXPECT_EQ(head->ifa_next, tail);
    EXPECT_EQ(text(tail->ifa_addr), "fd00::5");
    EXPECT_EQ(reinterpret_cast<sockaddr_in6*>(tail->ifa_addr)->sin6_scope_id, lo);
    EXPECT_EQ(text(tail->ifa_netmask), "ffff:ffff:ffff:ffff::");
    EXPECT_EQ(tail->ifa_next, nullptr);
    VOLUT::freeifaddrs(head);
}

TEST(IfaddrsTest, MalformedDatagramsNeverReadOutside) {
    unsigned int lo = if_nametoindex("lo");
    in_addr v4{};
    inet_pton(AF_INET, "10.0.0.1", &v4);
    VOLUT::ifaddrs* head = nullptr;
    VOLUT::ifaddrs* tail = nullptr;

    Datagram error;
    error.control(NLMSG_ERROR);
    EXPECT_EQ(
        VOLUT::parse_netlink_messages(error.bytes().data(), error.bytes().size(), &head, &tail),
        -1);

    // Every truncation of a valid message stops the walk without an entry
    // (ASan checks the reads, the copy has exactly the truncated size).
    Datagram d;
    d.address(AF_INET, lo, 8, &v4, sizeof(v4));
    for (size_t len = 0; len < d.bytes().size(); ++len) {
        std::vector<unsigned char> cut(d.bytes().begin(), d.bytes().begin() + len);
        EXPECT_GE(VOLUT::parse_netlink_messages(cut.data(), cut.size(), &head, &tail), 0);
    }
    // Message length larger than the datagram: stop.
    std::vector<unsigned char> lying = d.bytes();
    uint32_t big = 4096;
    std::memcpy(lying.data(), &big, sizeof(big));
    EXPECT_EQ(VOLUT::parse_netlink_messages(lying.data(), lying.size(), &head, &tail), 0);
    // Attribute lengths below 4 or past the message: stop.
    std::vector<unsigned char> badAttr = d.bytes();
    uint16_t tiny = 2;
    std::memcpy(badAttr.data() + 24, &tiny, sizeof(tiny));
    EXPECT_EQ(VOLUT::parse_netlink_messages(badAttr.data(), badAttr.size(), &head, &tail), 0);
    EXPECT_EQ(head, nullptr);

    // An interface index that does not exist fails the whole walk.
    Datagram gone;
    gone.address(AF_INET, 999999, 8, &v4, sizeof(v4));
    EXPECT_EQ(VOLUT::parse_netlink_messages(gone.bytes().data(), gone.bytes().size(), &head, &tail),
              -1);
    VOLUT::freeifaddrs(head);
}
