#pragma once

#include <sys/socket.h>

#include <cstddef>

#include "uvc_export.h"

struct ifaddrmsg;

// The library's own interface-address list, read over a routing netlink
// socket. Lives in namespace VOLUT so it never collides with libc's.
namespace VOLUT {

struct ifaddrs {
    ifaddrs* ifa_next;
    char* ifa_name;          // owned, NUL-terminated
    unsigned int ifa_flags;  // SIOCGIFFLAGS
    sockaddr* ifa_addr;      // owned sockaddr_in or sockaddr_in6
    sockaddr* ifa_netmask;   // owned, same family as ifa_addr
};

// 0 and the list (null when there are no addresses), or -1 and null.
UVC_EXPORT int getifaddrs(ifaddrs** list);
// Frees every entry with its name and addresses; null is allowed.
UVC_EXPORT void freeifaddrs(ifaddrs* list);

// Steps of building one entry; each returns 0 or -1.
int populate_ifaddrs(ifaddrs* entry, ifaddrmsg* message, void* data, unsigned int length);
int set_ifname(ifaddrs* entry, int index);
int set_flags(ifaddrs* entry);
int set_addresses(ifaddrs* entry, ifaddrmsg* message, void* data, unsigned int length);
int make_prefixes(ifaddrs* entry, int family, int prefixLength);

// Walks one received netlink datagram and appends an entry for every address
// attribute to the list ending at *tail (head kept in *head). Returns 1 when
// the end-of-dump message was seen, 0 when more datagrams follow, -1 on an
// error message or a failed entry.
int parse_netlink_messages(const void* buffer, size_t length, ifaddrs** head, ifaddrs** tail);

}  // namespace VOLUT
