#pragma once

#include <string>

#include "base/Runnable.h"

namespace VOLUT {

// Runs a member function without arguments on an object it does not own.
template <typename TClass, typename Func>
class Functor0 : public Runnable {
public:
    Functor0(TClass* object, Func func) : object_(object), func_(func) {}
    ~Functor0() override = default;

    void run() override { (object_->*func_)(); }
    virtual TClass* getObject() { return object_; }
    // Describes the functor for diagnostics; specialised for known instances
    // (see LogServer.h) to name the concrete template arguments.
    virtual std::string dump() {
        return "virtual std::string VOLUT::Functor0<TClass, Func>::dump()";
    }

private:
    TClass* object_;
    Func func_;
};

}  // namespace VOLUT
