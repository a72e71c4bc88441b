#pragma once

namespace com_tesk {

/// Runs a function at the end of a scope, also when an exception or a cancellation ends it. The function must neither
/// throw nor contain a cancellation point.
template <typename Function>
class AtScopeEnd {
  public:
    explicit AtScopeEnd(const Function& atEnd) : function(atEnd) {}
    AtScopeEnd(const AtScopeEnd&) = delete;
    AtScopeEnd& operator=(const AtScopeEnd&) = delete;
    ~AtScopeEnd() { function(); }

  private:
    const Function function;
};

}  // namespace com_tesk
