#pragma once

namespace VOLUT {

// The unit of work a Thread runs; the Thread owns it once handed over.
class Runnable {
public:
    virtual ~Runnable() = default;
    virtual void run() = 0;
};

}  // namespace VOLUT
