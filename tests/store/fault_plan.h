// Lets one allocation of a stretch of code fail: the first, then the second, until none is left to fail.
//
//   for (FaultPlan plan; plan.next();) {
//     if (plan.run([&] { return AddCertificate(store, kLeaf); })) continue;  // no allocation failed, or none mattered
//     EXPECT_EQ(...);
//   }
//
// Counts what this thread asks of malloc, calloc and operator new; only code that is linked into the test program
// itself can be made to fail by the former two.
#ifndef CERTKERN_TESTS_STORE_FAULT_PLAN_H
#define CERTKERN_TESTS_STORE_FAULT_PLAN_H

namespace certkern::test {

class FaultPlan {
 public:
  // Begins the next round; false once a round has gone by without a failure.
  bool next();
  // What the code answered, or false if it ran out of memory with std::bad_alloc.
  template <class Code>
  bool run(Code code);
  // Rounds in which an allocation failed.
  int faults() const { return round_ - 1; }

 private:
  void arm() const;
  static void disarm();

  int round_ = 0;
};

}  // namespace certkern::test

#include <new>

template <class Code>
bool certkern::test::FaultPlan::run(Code code) {
  struct Armed {
    explicit Armed(const FaultPlan& plan) { plan.arm(); }
    ~Armed() { disarm(); }
  } const armed(*this);
  try {
    return code();
  } catch (const std::bad_alloc&) {
    return false;
  }
}

#endif
