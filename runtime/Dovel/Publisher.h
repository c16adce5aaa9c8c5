// Tells those who asked for it which attribute of an object has changed. Calls come on the thread of the
// object, in the middle of the change's operation; a subscriber may come and go in such a call.
//
// One thread, that of the object.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace Dovel {

class Publisher {
 public:
  class Subscriber {
   public:
    // What the key means is the attribute's matter: a pointer to the key of the member that has changed, or
    // to the former value. It is valid during the call.
    virtual void onChange(std::uint32_t /*attribute*/, void const* /*key*/) {}
    // The last user of the object is gone. A use that is taken here keeps the object alive.
    virtual void onZeroReferences() {}
    // Whether changes are to be told; the end of all uses always is.
    virtual bool hasNotificationActive() const { return true; }

   protected:
    ~Subscriber() = default;
  };

  Publisher() = default;
  Publisher(Publisher const&) = delete;
  Publisher& operator=(Publisher const&) = delete;

  // Each once; it must be removed before it ends.
  void subscriberIs(Subscriber& subscriber) { subscribers_.push_back(&subscriber); }
  void subscriberDel(Subscriber const& subscriber) {
    std::replace(subscribers_.begin(), subscribers_.end(), const_cast<Subscriber*>(&subscriber),
                 static_cast<Subscriber*>(nullptr));
    if (depth_ == 0) compact();
  }
  // Whether anybody wants to be told of changes.
  bool hasSubscribers() const {
    return std::any_of(subscribers_.begin(), subscribers_.end(),
                       [](auto const* one) { return one != nullptr && one->hasNotificationActive(); });
  }

  void publishChange(std::uint32_t attribute, void const* key) {
    tell([=](Subscriber& one) {
      if (one.hasNotificationActive()) one.onChange(attribute, key);
    });
  }
  void publishZeroReferences() {
    tell([](Subscriber& one) { one.onZeroReferences(); });
  }

 private:
  // Who comes during a call is not told of it, and who goes is told nothing more.
  template <class Call>
  void tell(Call&& call) {
    struct Depth {
      Publisher& publisher;
      explicit Depth(Publisher& of) : publisher(of) { ++publisher.depth_; }
      Depth(Depth const&) = delete;
      Depth& operator=(Depth const&) = delete;
      ~Depth() {
        if (--publisher.depth_ == 0) publisher.compact();
      }
    } const depth(*this);
    std::size_t const count = subscribers_.size();
    for (std::size_t at = 0; at < count; ++at)
      if (Subscriber* const one = subscribers_[at]; one != nullptr) call(*one);
  }
  void compact() { std::erase(subscribers_, nullptr); }

  std::vector<Subscriber*> subscribers_;
  unsigned depth_ = 0;
};

}  // namespace Dovel
