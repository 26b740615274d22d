#include "base/ifaddrs.h"

#include <linux/if_addr.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace VOLUT {

namespace {

constexpr size_t kReceiveBufferSize = 4096;
constexpr size_t kHeaderSize = sizeof(nlmsghdr);        // 16
constexpr size_t kAttrHeaderSize = sizeof(rtattr);      // 4
constexpr size_t kAddrMessageSize = sizeof(ifaddrmsg);  // 8

size_t align4(size_t n) {
    return (n + 3u) & ~size_t{3};
}

// Closes the socket on every way out.
class SocketGuard {
public:
    explicit SocketGuard(int fd) : fd_(fd) {}
    ~SocketGuard() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    SocketGuard(const SocketGuard&) = delete;
    SocketGuard& operator=(const SocketGuard&) = delete;
    int fd() const { return fd_; }

private:
    int fd_;
};

void* zeroedAddress(int family) {
    if (family == AF_INET) {
        return std::calloc(1, sizeof(sockaddr_in));
    }
    if (family == AF_INET6) {
        return std::calloc(1, sizeof(sockaddr_in6));
    }
    return nullptr;
}

// Address field and its size inside a socket address of `family`.
unsigned char* addressField(void* address, int family, size_t& size) {
    if (family == AF_INET) {
        size = sizeof(in_addr);
        return reinterpret_cast<unsigned char*>(&static_cast<sockaddr_in*>(address)->sin_addr);
    }
    size = sizeof(in6_addr);
    return reinterpret_cast<unsigned char*>(&static_cast<sockaddr_in6*>(address)->sin6_addr);
}

int walkAttributes(const unsigned char* message, size_t messageLength, const ifaddrmsg& header,
                   ifaddrs** head, ifaddrs** tail) {
    if (header.ifa_family != AF_INET && header.ifa_family != AF_INET6) {
        return 0;
    }
    size_t offset = kHeaderSize + align4(kAddrMessageSize);
    while (offset + kAttrHeaderSize <= messageLength) {
        rtattr attr;
        std::memcpy(&attr, message + offset, sizeof(attr));
        size_t remaining = messageLength - offset;
        if (attr.rta_len < kAttrHeaderSize || attr.rta_len > remaining) {
            break;
        }
        if (attr.rta_type == IFA_ADDRESS) {
            auto* entry = static_cast<ifaddrs*>(std::calloc(1, sizeof(ifaddrs)));
            if (entry == nullptr) {
                return -1;
            }
            if (*tail != nullptr) {
                (*tail)->ifa_next = entry;
            } else {
                *head = entry;
            }
            *tail = entry;
            ifaddrmsg copy = header;
            void* payload = const_cast<unsigned char*>(message + offset + kAttrHeaderSize);
            if (populate_ifaddrs(entry, &copy, payload, attr.rta_len - kAttrHeaderSize) != 0) {
                return -1;
            }
        }
        offset += align4(attr.rta_len);
    }
    return 0;
}

}  // namespace

int parse_netlink_messages(const void* buffer, size_t length, ifaddrs** head, ifaddrs** tail) {
    const auto* bytes = static_cast<const unsigned char*>(buffer);
    size_t offset = 0;
    while (length - offset >= kHeaderSize) {
        nlmsghdr header;
        std::memcpy(&header, bytes + offset, sizeof(header));
        size_t remaining = length - offset;
        if (header.nlmsg_len < kHeaderSize || header.nlmsg_len > remaining) {
            break;
        }
        switch (header.nlmsg_type) {
            case NLMSG_DONE:
                return 1;
            case NLMSG_ERROR:
                return -1;
            case RTM_NEWADDR: {
                if (header.nlmsg_len < kHeaderSize + kAddrMessageSize) {
                    break;
                }
                ifaddrmsg message;
                std::memcpy(&message, bytes + offset + kHeaderSize, sizeof(message));
                if (walkAttributes(bytes + offset, header.nlmsg_len, message, head, tail) != 0) {
                    return -1;
                }
                break;
            }
            default:
                break;
        }
        size_t step = align4(header.nlmsg_len);
        if (step >= remaining) {
            break;
        }
        offset += step;
    }
    return 0;
}

int getifaddrs(ifaddrs** list) {
    if (list == nullptr) {
        return -1;
    }
    *list = nullptr;
    SocketGuard sock(socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE));
    if (sock.fd() < 0) {
        return -1;
    }
    struct {
        nlmsghdr header;
        ifaddrmsg message;
    } request;
    std::memset(&request, 0, sizeof(request));
    request.header.nlmsg_len = sizeof(request);
    request.header.nlmsg_type = RTM_GETADDR;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ROOT;
    if (sendto(sock.fd(), &request, sizeof(request), 0, nullptr, 0) <
        static_cast<ssize_t>(sizeof(request))) {
        return -1;
    }

    ifaddrs* head = nullptr;
    ifaddrs* tail = nullptr;
    alignas(nlmsghdr) unsigned char buffer[kReceiveBufferSize];
    for (;;) {
        ssize_t received = recvfrom(sock.fd(), buffer, sizeof(buffer), 0, nullptr, nullptr);
        if (received < 1) {
            break;
        }
        int rc = parse_netlink_messages(buffer, static_cast<size_t>(received), &head, &tail);
        if (rc == 1) {
            *list = head;
            return 0;
        }
        if (rc < 0) {
            break;
        }
    }
    freeifaddrs(head);
    return -1;
}

void freeifaddrs(ifaddrs* list) {
    while (list != nullptr) {
        ifaddrs* next = list->ifa_next;
        std::free(list->ifa_name);
        std::free(list->ifa_addr);
        std::free(list->ifa_netmask);
        std::free(list);
        list = next;
    }
}

int populate_ifaddrs(ifaddrs* entry, ifaddrmsg* message, void* data, unsigned int length) {
    if (entry == nullptr || message == nullptr) {
        return -1;
    }
    if (set_ifname(entry, static_cast<int>(message->ifa_index)) != 0 || set_flags(entry) != 0 ||
        set_addresses(entry, message, data, length) != 0 ||
        make_prefixes(entry, message->ifa_family, message->ifa_prefixlen) != 0) {
        return -1;
    }
    return 0;
}

int set_ifname(ifaddrs* entry, int index) {
    char name[IF_NAMESIZE] = {};
    if (index <= 0 || if_indextoname(static_cast<unsigned int>(index), name) == nullptr) {
        return -1;
    }
    size_t len = strnlen(name, sizeof(name) - 1);
    char* copy = static_cast<char*>(std::calloc(len + 1, 1));
    if (copy == nullptr) {
        return -1;
    }
    std::memcpy(copy, name, len);
    std::free(entry->ifa_name);
    entry->ifa_name = copy;
    return 0;
}

int set_flags(ifaddrs* entry) {
    if (entry->ifa_name == nullptr) {
        return -1;
    }
    SocketGuard sock(socket(AF_INET, SOCK_DGRAM, 0));
    if (sock.fd() < 0) {
        return -1;
    }
    ifreq request;
    std::memset(&request, 0, sizeof(request));
    std::strncpy(request.ifr_name, entry->ifa_name, IFNAMSIZ - 1);
    if (ioctl(sock.fd(), SIOCGIFFLAGS, &request) < 0) {
        return -1;
    }
    entry->ifa_flags = static_cast<uint16_t>(request.ifr_flags);
    return 0;
}

int set_addresses(ifaddrs* entry, ifaddrmsg* message, void* data, unsigned int length) {
    const int family = message->ifa_family;
    void* address = zeroedAddress(family);
    if (address == nullptr) {
        return -1;
    }
    size_t size = 0;
    unsigned char* field = addressField(address, family, size);
    if (data != nullptr) {
        std::memcpy(field, data, length < size ? length : size);
    }
    if (family == AF_INET6) {
        auto* in6 = static_cast<sockaddr_in6*>(address);
        in6->sin6_family = AF_INET6;
        in6->sin6_scope_id = message->ifa_index;
    } else {
        static_cast<sockaddr_in*>(address)->sin_family = AF_INET;
    }
    std::free(entry->ifa_addr);
    entry->ifa_addr = static_cast<sockaddr*>(address);
    return 0;
}

int make_prefixes(ifaddrs* entry, int family, int prefixLength) {
    void* mask = zeroedAddress(family);
    if (mask == nullptr) {
        return -1;
    }
    size_t size = 0;
    unsigned char* field = addressField(mask, family, size);
    const int maxBits = static_cast<int>(size * 8);
    int bits = prefixLength < 0 ? 0 : (prefixLength > maxBits ? maxBits : prefixLength);
    std::memset(field, 0xFF, static_cast<size_t>(bits / 8));
    // A partial byte only exists below the full length, so nothing is written
    // past the address field.
    if (bits % 8 != 0) {
        field[bits / 8] = static_cast<unsigned char>(0xFF << (8 - bits % 8));
    }
    reinterpret_cast<sockaddr*>(mask)->sa_family = static_cast<sa_family_t>(family);
    std::free(entry->ifa_netmask);
    entry->ifa_netmask = static_cast<sockaddr*>(mask);
    return 0;
}

}  // namespace VOLUT
