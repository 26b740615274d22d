#pragma once

// The library is built with hidden visibility; only what carries this mark is
// part of its dynamic interface.
#define UVC_EXPORT __attribute__((visibility("default")))
