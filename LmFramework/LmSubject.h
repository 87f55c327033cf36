// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_LMSUBJECT_H
#define LMFRAMEWORK_LMSUBJECT_H

#include <memory>

#include "LmFramework/LmFrameworkExport.h"
#include "LmFramework/LmUncopyable.h"

class LmObserver_;
class ObserverList;

/// Whatever observers can be attached to inside one process. Any thread may call anything here, from inside an observer
/// too.
///
/// A forked child has the subject with all its observers, whatever other threads were doing with it, and may use and
/// destroy it.
class LM_FRAMEWORK_API LmSubject : private LmUncopyable {
 public:
  /// How a notification is delivered. This port knows one way, on the caller's thread before
  /// NotifyObserver returns, and takes every value as that.
  enum EN_NTF_TYPE { EN_NTF_TYPE_SYNC = 0 };

  LmSubject();
  virtual ~LmSubject();

  /// Attaches `observer`, which is borrowed, to `count` ids; a `count` of 0 attaches it to every id.
  /// Attaching again adds to its ids.
  /// @return false, and nothing changes, when `observer` is null, or `ids` is null and `count` is not 0.
  bool AddObserver(LmObserver_* observer, const unsigned* ids, unsigned count);

  /// Detaches `observer` from all ids. When this returns it is not being called and never will be;
  /// only a call from inside one of its own notifications does not wait for that one, nor for another of its
  /// notifications that is just removing it too. So hold no lock here that the observer takes, and with several
  /// threads notifying let no two observers remove each other from inside their notifications: they would wait for each
  /// other for ever. Unknown observers are ignored.
  void RemoveObserver(LmObserver_* observer);

  /// Calls every observer of `id`, in the order in which they were attached, with no lock held.
  /// @throw what the first observer threw that did, after the others have been called all the same
  void NotifyObserver(unsigned id, void* data, unsigned size, EN_NTF_TYPE type);

 private:
  const std::unique_ptr<ObserverList> mObservers;
};

#endif
