#pragma once

// The closed libraries' classes live in shared objects of their own; their
// declarations keep default visibility so that code built with hidden
// visibility still links against them.
#define TREVO_EXPORT __attribute__((visibility("default")))
