#include "base/ifaddrs.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

std::string text(const sockaddr* a) {
    char buf[INET6_ADDRSTRLEN] = {};
    const void* raw = &reinterpret_cast<const sockaddr_in6*>(a)->sin6_addr;
    if (a->sa_family == AF_INET)
        raw = &reinterpret_cast<const sockaddr_in*>(a)->sin_addr;
    inet_ntop(a->sa_family, raw, buf, sizeof(buf));
    return buf;
}

void append(Bytes& b, const void* p, size_t n) {
    b.insert(b.end(), static_cast<const unsigned char*>(p),
             static_cast<const unsigned char*>(p) + n);
    b.resize((b.size() + 3) & ~size_t{3});
}

// One address message laid out as the kernel does, appended to `b`: an
// IFA_LOCAL attribute (skipped) and the IFA_ADDRESS.
void message(Bytes& b, uint16_t type, int family = AF_INET, unsigned index = 1, int prefix = 8,
             const char* address = "10.0.0.1") {
    size_t start = b.size();
    nlmsghdr h{};
    h.nlmsg_type = type;
    ifaddrmsg m{static_cast<unsigned char>(family), static_cast<unsigned char>(prefix), 0, 0,
                index};
    append(b, &h, sizeof(h));
    append(b, &m, sizeof(m));
    unsigned char addr[16] = {};
    inet_pton(family == AF_INET6 ? AF_INET6 : AF_INET, address, addr);
    size_t len = family == AF_INET6 ? 16 : 4;
    for (unsigned short kind : {IFA_LOCAL, IFA_ADDRESS}) {
        rtattr a{static_cast<unsigned short>(RTA_LENGTH(len)), kind};
        append(b, &a, sizeof(a));
        append(b, addr, len);
    }
    uint32_t total = static_cast<uint32_t>(b.size() - start);
    std::memcpy(&b[start], &total, sizeof(total));
}

}  // namespace

TEST(IfaddrsTest, FindsLoopbackOnThisMachineAndFreesCleanly) {
    VOLUT::ifaddrs* list = nullptr;
    ASSERT_EQ(VOLUT::getifaddrs(&list), 0);
    int found = 0;
    for (auto* e = list; e; e = e->ifa_next) {
        ASSERT_TRUE(e->ifa_name && e->ifa_addr && e->ifa_netmask);
        EXPECT_EQ(e->ifa_addr->sa_family, e->ifa_netmask->sa_family);
        if (std::string(e->ifa_name) == "lo" && e->ifa_addr->sa_family == AF_INET) {
            EXPECT_EQ(text(e->ifa_addr) + "/" + text(e->ifa_netmask), "127.0.0.1/255.0.0.0");
            EXPECT_EQ(e->ifa_flags & (IFF_LOOPBACK | IFF_UP), unsigned{IFF_LOOPBACK | IFF_UP});
            ++found;
        }
    }
    EXPECT_EQ(found, 1);
    VOLUT::freeifaddrs(list);
    VOLUT::freeifaddrs(nullptr);
    EXPECT_EQ(VOLUT::getifaddrs(nullptr), -1);
}

TEST(IfaddrsTest, ParsesKernelMessagesAndStopsAtBadOnes) {
    unsigned int lo = if_nametoindex("lo");
    Bytes d;
    message(d, RTM_NEWADDR, AF_INET, lo, 24, "192.168.1.20");
    message(d, RTM_NEWADDR, AF_INET, lo, 0);
    message(d, RTM_NEWADDR, AF_INET, lo, 40);  // clamped
    message(d, RTM_NEWADDR, AF_UNIX, lo);      // other families are skipped
    message(d, RTM_NEWADDR, AF_INET6, lo, 64, "fd00::5");
    message(d, NLMSG_DONE);
    VOLUT::ifaddrs *head = nullptr, *tail = nullptr;
    ASSERT_EQ(VOLUT::parse_netlink_messages(d.data(), d.size(), &head, &tail), 1);
    std::vector<std::string> got;
    for (auto* e = head; e; e = e->ifa_next)
        got.push_back(std::string(e->ifa_name) + " " + text(e->ifa_addr) + "/" +
                      text(e->ifa_netmask));
    EXPECT_EQ(got, (std::vector<std::string>{"lo 192.168.1.20/255.255.255.0", "lo 10.0.0.1/0.0.0.0",
                                             "lo 10.0.0.1/255.255.255.255",
                                             "lo fd00::5/ffff:ffff:ffff:ffff::"}));
    ASSERT_TRUE(tail && !tail->ifa_next);
    EXPECT_EQ(reinterpret_cast<sockaddr_in6*>(tail->ifa_addr)->sin6_scope_id, lo);
    VOLUT::freeifaddrs(head);

    head = tail = nullptr;
    auto parse = [&](const Bytes& b) {
        return VOLUT::parse_netlink_messages(b.data(), b.size(), &head, &tail);
    };
    Bytes one, error, gone;
    message(one, RTM_NEWADDR, AF_INET, lo);
    message(error, NLMSG_ERROR);
    EXPECT_EQ(parse(error), -1);
    // Every truncation stops the walk without an entry (ASan checks the
    // reads: each copy has exactly the truncated size).
    for (size_t len = 0; len < one.size(); ++len)
        EXPECT_GE(parse(Bytes(one.begin(), one.begin() + len)), 0);
    // A message length beyond the datagram, an attribute length below 4: stop.
    Bytes lying = one, badAttr = one;
    lying[1] = 0x10;
    badAttr[24] = 2;
    EXPECT_EQ(parse(lying), 0);
    EXPECT_EQ(parse(badAttr), 0);
    EXPECT_EQ(head, nullptr);
    // An interface index that does not exist fails the whole walk.
    message(gone, RTM_NEWADDR, AF_INET, 999999);
    EXPECT_EQ(parse(gone), -1);
    VOLUT::freeifaddrs(head);
}
