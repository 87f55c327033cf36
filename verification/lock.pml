/* SPDX-License-Identifier: Apache-2.0
 *
 * The protocol by which processes share a named lock (LmFramework/posix/LockFile.h), for every order of the steps that are
 * modelled, with a death possible before each. Each step is one access to the word or one call to the kernel, but for
 * the giving back of garbage, where the look at the word and its exchange are one. A process that has died begins anew,
 * as another one, so the number of deaths has no limit.
 *
 * Left out are: closing and opening again, more processes than slots, a file that is removed or cut short, its header,
 * and garbage that names a slot.
 *
 * What is checked (verification/check says how):
 *   - two that are inside exclude each other, unless garbage hit the hold of the one that was there before;
 *   - whoever gets the lock after a death inside knows it;
 *   - whoever wants the lock is not kept waiting for ever by the dead, nor by garbage;
 *   - with WAKES_ONLY: nobody is left asleep by those that have had enough of the lock, without deaths and without the
 *     timeout that covers them.
 *
 * LEAVE_OUT_... leaves out one step; the check has to fail then.
 */

#ifndef PROCESSES
#define PROCESSES 3
#endif
#ifndef GARBAGES
#define GARBAGES 0
#endif

#ifndef SLOTS
#define SLOTS 3               /* of 127 */
#endif

#define FREE 0
#define GARBAGE 15            /* what no process ever writes */
#define WAITERS 16
#define SLOT(value) ((value) & 15)

byte word = FREE;
byte lockedBy[SLOTS + 1];     /* the bytes of the file: the process that has locked it, counted from 1; 0: nobody */
bool asleep[PROCESSES];

/* Only for the assertions. */
bool inside[PROCESSES];
bool hit[PROCESSES];          /* inside, and garbage has come over the word since */
bool halfWritten;             /* somebody died inside, and nobody knows yet */

#if PROCESSES == 3
#define ALONE ((inside[0] -> hit[0] || me == 0 : true) && (inside[1] -> hit[1] || me == 1 : true) && \
               (inside[2] -> hit[2] || me == 2 : true))
#else
#define ALONE ((inside[0] -> hit[0] || me == 0 : true) && (inside[1] -> hit[1] || me == 1 : true))
#endif

#ifdef WAKES_ONLY
#define DIES false
#define TIMEOUT false
#else
#define DIES true
#define TIMEOUT true
#endif

/* With the step that takes the lock. */
inline enter() {
  assert(ALONE);
  inside[me] = true;
  hit[me] = false
}

inline enterUnwarned() {
  assert(!halfWritten);
  enter()
}

inline enterWarned() {
  halfWritten = false;
  enter()
}

/* With the step that gives the lock back. */
inline leave() {
  inside[me] = false;
  hit[me] = false
}

active [PROCESSES] proctype Process() {
  byte me = _pid;
  byte slot, seen, probed;
  bool hasWaited;

start:
  if
  :: atomic { lockedBy[1] == 0 -> slot = 1; lockedBy[slot] = me + 1 }
  :: atomic { lockedBy[2] == 0 -> slot = 2; lockedBy[slot] = me + 1 }
  :: atomic { lockedBy[3] == 0 -> slot = 3; lockedBy[slot] = me + 1 }
#if SLOTS == 4
  :: atomic { lockedBy[4] == 0 -> slot = 4; lockedBy[slot] = me + 1 }
#endif
  fi;
#ifdef LEAVE_OUT_THE_SLOTS_LOCK
  lockedBy[slot] = 0;
#endif

want:
#ifdef WAKES_ONLY
  if
  :: skip
  :: goto done
  fi;
#endif
  if
  :: atomic { word == FREE -> word = slot; enterUnwarned(); goto progress_inside }
  :: atomic { word != FREE -> skip }
  :: DIES -> goto dead
  fi;

attempt:
  if
  :: seen = word
  :: DIES -> goto dead
  fi;
  if
  :: seen == FREE -> goto takeFree
  :: SLOT(seen) == GARBAGE -> goto takeFromGarbage
  :: SLOT(seen) == slot -> goto takeInherited
  :: else -> goto askWhetherDead
  fi;

takeFree:
  if
#ifdef LEAVE_OUT_THE_WAITERS_OF_OTHERS
  :: atomic { word == seen -> word = slot; enterUnwarned(); goto progress_inside }
#else
  :: atomic { word == seen -> word = (hasWaited -> slot | WAITERS : slot); enterUnwarned(); goto progress_inside }
#endif
  :: atomic { word != seen -> goto attempt }
  :: DIES -> goto dead
  fi;

takeFromGarbage:
#ifdef LEAVE_OUT_THE_REPAIR
  goto sleep;
#else
  if
  :: atomic { word == seen -> word = slot | WAITERS; enterWarned(); goto progress_inside }
  :: atomic { word != seen -> goto attempt }
  :: DIES -> goto dead
  fi;
#endif

/* The word names our own slot, whose former user died inside. */
takeInherited:
#ifdef LEAVE_OUT_THE_INHERITANCE
  goto sleep;
#else
  if
  :: atomic { word == seen -> word = slot | WAITERS; enterWarned(); goto progress_inside }
  :: atomic { word != seen -> goto attempt }
  :: DIES -> goto dead
  fi;
#endif

askWhetherDead:
  if
#ifdef LEAVE_OUT_THE_TAKEOVER
  :: goto sleep
#else
  :: atomic {
       lockedBy[SLOT(seen)] == 0 ->
       probed = SLOT(seen);
#ifndef LEAVE_OUT_THE_PROBES_LOCK
       lockedBy[probed] = me + 1;
#endif
     }
  :: atomic { lockedBy[SLOT(seen)] != 0 -> goto sleep }
#endif
  :: DIES -> goto dead
  fi;
  /* As long as we have that byte, no other process can be in that slot. */
  if
#ifdef LEAVE_OUT_THE_SECOND_LOOK
  :: atomic { word = slot | WAITERS; enterWarned() }
#else
  :: atomic { word == seen -> word = slot | WAITERS; enterWarned() }
  :: atomic { word != seen -> skip }
#endif
  :: DIES -> goto dead
  fi;
  if
  :: atomic {
#ifndef LEAVE_OUT_THE_PROBES_LOCK
       lockedBy[probed] = 0;
#endif
       probed = 0;
       if
       :: inside[me] -> goto progress_inside
       :: else -> goto attempt
       fi
     }
  :: DIES -> goto dead
  fi;

sleep:
  if
  :: atomic { word == seen -> word = seen | WAITERS }
  :: atomic { word != seen -> goto attempt }
  :: DIES -> goto dead
  fi;
  if
  :: atomic { word == (seen | WAITERS) -> asleep[me] = true }
  :: atomic { word != (seen | WAITERS) -> hasWaited = true; goto attempt }
  :: DIES -> goto dead
  fi;
  if
  :: atomic { !asleep[me] -> hasWaited = true; goto attempt }
  :: atomic { TIMEOUT && asleep[me] -> asleep[me] = false; hasWaited = true; goto attempt }
  :: DIES -> goto dead
  fi;

progress_inside:
  hasWaited = false;
  seen = 0;
  if
#ifdef LEAVE_OUT_THE_COMPARISON
  :: atomic { word = FREE; leave(); goto wake }
#else
  :: atomic { word == slot -> word = FREE; leave(); goto want }
  :: atomic { word == (slot | WAITERS) -> word = FREE; leave(); goto wake }
  :: atomic { SLOT(word) == GARBAGE -> word = FREE; leave(); goto wake }
  :: atomic { SLOT(word) != slot && SLOT(word) != GARBAGE -> leave(); goto want }
#endif
  :: DIES -> goto dead
  fi;

wake:
#ifdef LEAVE_OUT_THE_WAKE
  goto want;
#endif
  if
  :: atomic { asleep[0] -> asleep[0] = false }
  :: atomic { asleep[1] -> asleep[1] = false }
#if PROCESSES == 3
  :: atomic { asleep[2] -> asleep[2] = false }
  :: atomic { !asleep[0] && !asleep[1] && !asleep[2] -> skip }
#else
  :: atomic { !asleep[0] && !asleep[1] -> skip }
#endif
  :: DIES -> goto dead
  fi;
  goto want;

/* What the kernel does: all that the process had locked is unlocked at once, and the memory stays as it is. */
dead:
  atomic {
    if
    :: inside[me] && SLOT(word) == slot -> halfWritten = true
    :: else
    fi;
    leave();
    asleep[me] = false;
    if
    :: lockedBy[slot] == me + 1 -> lockedBy[slot] = 0
    :: else
    fi;
    if
    :: probed != 0 && lockedBy[probed] == me + 1 -> lockedBy[probed] = 0
    :: else
    fi;
    slot = 0;
    seen = 0;
    probed = 0;
    hasWaited = false
  }
progress_dead:
  goto start;

done:
  skip
}

#if GARBAGES > 0
active proctype Vandal() {
  byte left = GARBAGES;
end:
  do
  :: atomic {
       left > 0 ->
       left--;
       word = GARBAGE;
       hit[0] = inside[0];
       hit[1] = inside[1];
#if PROCESSES == 3
       hit[2] = inside[2];
#endif
       halfWritten = false
     }
  od
}
#endif
