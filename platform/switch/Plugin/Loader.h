// Loaders of plug-ins. A plug-in is a static object of a loaded library that hangs a caller of its init()
// into a loader; the host then loads the loader's context, which runs the callers.
//
// Threads: plug-ins come and go on the thread that loads libraries, and the host loads contexts on the same.
#pragma once

#include <forward_list>
#include <memory>
#include <string>
#include <vector>

#include "runtime/Dovel/String.h"

namespace Plugin {

// Runs the init of one plug-in, with whatever context its loader has.
class LoaderInitCaller {
 public:
  virtual ~LoaderInitCaller();
  virtual void operator()() = 0;
};

// Runs the init of one plug-in with a context that it is given.
template <class Context>
class PluginInitCaller {
 public:
  virtual ~PluginInitCaller() = default;
  virtual void operator()(Context* context) = 0;
};

namespace Impl {

// The part of a loader that doesn't know its context.
class LoaderImpl {
 public:
  // What was told of a plug-in when it was registered.
  struct Registered {
    Dovel::String plugin;
    Dovel::String loader;
    Dovel::String description;
    Dovel::String version;
    LoaderInitCaller* caller;
  };

  explicit LoaderImpl(Dovel::String name) : name_(std::move(name)) {}
  LoaderImpl(LoaderImpl const&) = delete;
  LoaderImpl& operator=(LoaderImpl const&) = delete;

  Dovel::String const& name() const { return name_; }
  // In the order of registration.
  std::vector<Registered> const& plugins() const { return plugins_; }

  void registerPlugin(Dovel::String const& plugin, Dovel::String const& loader,
                      Dovel::String const& description, Dovel::String const& version,
                      LoaderInitCaller& caller) {
    plugins_.push_back({plugin, loader, description, version, &caller});
  }

 protected:
  ~LoaderImpl() = default;
  void withdraw(LoaderInitCaller const& caller) {
    std::erase_if(plugins_, [&](Registered const& one) { return one.caller == &caller; });
  }

 private:
  Dovel::String name_;
  std::vector<Registered> plugins_;
};

}  // namespace Impl

template <class Context>
class Loader : public Impl::LoaderImpl {
 public:
  using LoaderImpl::LoaderImpl;

  class LoaderInitCallerWithContext final : public LoaderInitCaller {
   public:
    LoaderInitCallerWithContext(Loader const& loader, PluginInitCaller<Context>& plugin)
        : loader_(loader), plugin_(plugin) {}
    void operator()() override { plugin_(loader_.context_); }

   private:
    Loader const& loader_;
    PluginInitCaller<Context>& plugin_;
  };

  // Adds a caller, before those that are there. It runs when a context is loaded the next time.
  LoaderInitCallerWithContext& callerIs(PluginInitCaller<Context>& plugin) {
    pending_.push_front(std::make_unique<LoaderInitCallerWithContext>(*this, plugin));
    return *pending_.front();
  }
  // Takes a caller out, so that its plug-in may go.
  void callerDel(LoaderInitCallerWithContext const& caller) {
    withdraw(caller);
    auto const isIt = [&](auto const& one) { return one.get() == &caller; };
    pending_.remove_if(isIt);
    loaded_.remove_if(isIt);
  }

  // Runs the callers that this context has not seen, each once; those of another context are run again.
  void load(Context* context) {
    if (context != context_) pending_.splice_after(pending_.before_begin(), loaded_);
    context_ = context;
    while (!pending_.empty()) {
      loaded_.splice_after(loaded_.before_begin(), pending_, pending_.before_begin());
      (*loaded_.front())();
    }
  }

 private:
  using Callers = std::forward_list<std::unique_ptr<LoaderInitCallerWithContext>>;

  Callers pending_;
  Callers loaded_;
  Context* context_ = nullptr;
};

}  // namespace Plugin
