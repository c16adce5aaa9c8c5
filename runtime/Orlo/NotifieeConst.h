// Watches an object that it may not change: subscribed for its own lifetime. The thread of the object.
#pragma once

#include "runtime/Dovel/Publisher.h"

namespace Orlo {

class NotifieeConst : public Dovel::Publisher::Subscriber {
 public:
  // The publisher outlives the notifiee.
  explicit NotifieeConst(Dovel::Publisher& publisher) : publisher_(publisher) {
    publisher_.subscriberIs(*this);
  }
  NotifieeConst(NotifieeConst const&) = delete;
  NotifieeConst& operator=(NotifieeConst const&) = delete;
  virtual ~NotifieeConst() { publisher_.subscriberDel(*this); }

  bool hasNotificationActive() const override { return notificationActive_; }
  // False: changes are not told, only the end of all uses.
  void hasNotificationActiveIs(bool active) { notificationActive_ = active; }

 private:
  Dovel::Publisher& publisher_;
  bool notificationActive_ = true;
};

}  // namespace Orlo
