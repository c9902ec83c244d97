#include <zrn/Notify/Subject.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zrn {
namespace {

// Records its calls in a shared log, and runs an optional action on update.
class Recorder final : public IObserver {
public:
  Recorder(std::string name, std::vector<std::string>* log) : m_name(std::move(name)), m_log(log) {}
  void Update(unsigned int code, void*) override {
    m_log->push_back(m_name + ":" + std::to_string(code));
    if (onUpdate)
      onUpdate();
  }
  std::function<void()> onUpdate;

private:
  std::string m_name;
  std::vector<std::string>* m_log;
};

TEST(GSubject, AttachDetachAndEnable) {
  std::vector<std::string> log;
  Recorder a("a", &log), b("b", &log);
  GSubject subject;
  EXPECT_TRUE(subject.Attach(&a));
  EXPECT_FALSE(subject.Attach(&a));
  EXPECT_TRUE(subject.Attach(&b));
  EXPECT_FALSE(subject.Detach(reinterpret_cast<IObserver*>(&log)));
  subject.Notify(1, nullptr);
  subject.EnableNotify(false);
  EXPECT_FALSE(subject.IsNotifyEnable());
  subject.Notify(2, nullptr);
  subject.EnableNotify(true);
  EXPECT_TRUE(subject.Detach(&a));
  subject.Notify(3, nullptr);
  EXPECT_EQ(log, (std::vector<std::string>{"a:1", "b:1", "b:3"}));
  EXPECT_EQ(subject.ObserverCount(), 1);
  EXPECT_FALSE(subject.Exist(&a));
}

TEST(GSubject, ChangesDuringANotificationWaitForItsEnd) {
  std::vector<std::string> log;
  Recorder a("a", &log), b("b", &log), c("c", &log), late("late", &log);
  GSubject subject;
  subject.Attach(&a);
  subject.Attach(&b);
  subject.Attach(&c);
  a.onUpdate = [&] {
    EXPECT_TRUE(subject.Attach(&late)); // not called in this walk
    EXPECT_TRUE(subject.Detach(&b));    // not yet called: skipped
    EXPECT_TRUE(subject.Detach(&a));    // detached, then
    EXPECT_TRUE(subject.Attach(&a));    // attached again: ends up last
    EXPECT_TRUE(subject.Exist(&b));     // still there until the walk ends
    subject.Notify(9, nullptr);         // nested: applies nothing yet
    a.onUpdate = nullptr;
  };
  subject.Notify(1, nullptr);
  EXPECT_EQ(log, (std::vector<std::string>{"a:1", "c:9", "c:1"})); // a is leaving: skipped
  std::vector<IObserver*> order;
  subject.GetAllObservers(order);
  EXPECT_EQ(order, (std::vector<IObserver*>{&c, &late, &a}));
}

// Guards against a detach cancelling an attach made in the same notification:
// the observer waiting to be attached is not attached, so the detach is
// refused and changes nothing.
TEST(GSubject, DetachOfAnObserverOnlyWaitingToBeAttachedIsRefused) {
  std::vector<std::string> log;
  Recorder a("a", &log), x("x", &log), y("y", &log);
  GSubject subject;
  subject.Attach(&a);
  subject.Attach(&y);
  a.onUpdate = [&] {
    EXPECT_TRUE(subject.Attach(&x));
    EXPECT_FALSE(subject.Detach(&x)); // only waiting: not attached
    EXPECT_FALSE(subject.Exist(&x));
    // An attached observer detached, attached and detached again: the last
    // call counts.
    EXPECT_TRUE(subject.Detach(&y));
    EXPECT_TRUE(subject.Attach(&y));
    EXPECT_TRUE(subject.Detach(&y));
    a.onUpdate = nullptr;
  };
  subject.Notify(1, nullptr);
  EXPECT_TRUE(subject.Exist(&x));
  EXPECT_FALSE(subject.Exist(&y));
  subject.Notify(2, nullptr);
  EXPECT_EQ(log, (std::vector<std::string>{"a:1", "a:2", "x:2"}));
}

TEST(GSubject, SwitchesRepresentationWithHysteresis) {
  std::vector<std::string> log;
  std::vector<std::unique_ptr<Recorder>> observers;
  for (int i = 0; i < 61; ++i)
    observers.push_back(std::make_unique<Recorder>("o", &log));
  GSubject subject;
  for (int i = 0; i < 3; ++i)
    subject.Attach(observers[i].get());
  EXPECT_EQ(subject.GetManageredMemBytes(), 8u * 4 + 64 + 16); // capacity 4 after 3 appends
  for (int i = 3; i < 61; ++i)
    subject.Attach(observers[i].get()); // the 61st finds 60 present: a set now
  EXPECT_EQ(subject.GetManageredMemBytes(), 40u * 61 + 104 + 16);
  std::vector<IObserver*> order;
  subject.GetAllObservers(order);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end(), std::less<>()));

  for (int i = 60; i > 40; --i)
    subject.Detach(observers[i].get());
  EXPECT_EQ(subject.ObserverCount(), 41);
  subject.Detach(observers[40].get()); // 41 present: still a set
  subject.Detach(observers[39].get()); // 40 present: a vector again
  EXPECT_EQ(subject.ObserverCount(), 39);
  EXPECT_LT(subject.GetManageredMemBytes(), 40u * 39 + 104 + 16);
  subject.Notify(0, nullptr);
  EXPECT_EQ(log.size(), 39u);
}

} // namespace
} // namespace zrn
