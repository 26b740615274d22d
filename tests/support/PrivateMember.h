#pragma once

// Reaches private members of the device's closed classes from tests, without
// touching their declarations (which must stay exactly as the device has
// them). An explicit template instantiation may name a private member; the
// instantiation stores the member pointer where a test can read it.
//
//   UVC_PRIVATE_MEMBER(FactorySinks, trevo::ConversionFactory, sinks,
//                      std::set<trevo::FrameReceiver*>);
//   factory.*uvc_test::privateMember<FactorySinks>()
//
// Use each tag in one translation unit only. The pointers are set during
// static initialisation, so they are ready by the time any test runs.

#include <cstddef>

namespace uvc_test {

template <typename Tag>
struct PrivateMemberSlot {
    static typename Tag::type pointer;
};
template <typename Tag>
typename Tag::type PrivateMemberSlot<Tag>::pointer = nullptr;

template <typename Tag, typename Tag::type Member>
class PrivateMemberExposer {
    struct Setter {
        Setter() { PrivateMemberSlot<Tag>::pointer = Member; }
    };
    static Setter setter;
};
template <typename Tag, typename Tag::type Member>
typename PrivateMemberExposer<Tag, Member>::Setter PrivateMemberExposer<Tag, Member>::setter;

template <typename Tag>
typename Tag::type privateMember() {
    return PrivateMemberSlot<Tag>::pointer;
}

// Byte offset of a (possibly private) member within a live object.
template <typename Class, typename Type>
std::ptrdiff_t memberOffset(const Class& object, Type Class::*member) {
    return reinterpret_cast<const char*>(&(object.*member)) -
           reinterpret_cast<const char*>(&object);
}

}  // namespace uvc_test

#define UVC_PRIVATE_MEMBER(Tag, Class, member, ...)       \
    struct Tag {                                          \
        using type = __VA_ARGS__ Class::*;                \
    };                                                    \
    template class uvc_test::PrivateMemberExposer<Tag, &Class::member>
