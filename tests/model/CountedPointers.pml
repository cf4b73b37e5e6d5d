/* SPDX-License-Identifier: BSD-3-Clause */
/* Copyright (c) 2026 the Tresk authors */

/* One counted object, its record, and NTHREADS threads that make, copy, test and release pointers to it.
 *
 * What stands for what
 *   RaiseWeak, LowerWeak        ReferenceRecord::raiseWeak and lowerWeak
 *   RaiseStrong                 ReferenceRecord::raiseStrongIfPositive
 *   Claim                       StrongPtr::StrongPtr(const DynPtr&) and StrongPtr::claim
 *   CopyStrong                  StrongPtr::StrongPtr(const StrongPtr&), StrongPtr::acquire
 *   ReleaseStrong               StrongPtr::reset, StrongPtr::drop, releaseStrongUnit
 *   ResetUnlessLast             StrongPtr::resetUnlessLast
 *   MakePin                     Pin::Pin; ReleaseStrong is Pin::~Pin, too
 *   IsValid                     DynPtrRoot::isValid
 *   DestroyObject               ReferenceBase::~ReferenceBase, reached by `delete` in releaseStrongUnit
 *   Owner                       the same, of an object that never had a strong pointer
 *   RunHook                     ReferenceBase::extremeUnction and UnctionScope
 * Every access to a field of the record is a step of its own. A loop of compare-and-swap that gives up at zero decides
 * at one moment, its last look, and so is one step. Each thread has pointers of its own; a pointer that several threads
 * share is the matter of DataSlot.pml. Orders of memory are sequentially consistent here.
 *
 * The program of each thread: NOPS free choices among all operations, then it lets everything go.
 *   START_HELD     every thread holds a strong and a weak pointer
 *   START_WEAK     thread 1 holds a strong pointer, the others weak ones
 *   START_BORN     nobody has held the object yet; every thread has a weak pointer and upgrades it first
 *   START_STACK    nobody ever holds the object; one thread destroys it while the others drop and copy weak pointers
 *   HOOK           0 the default hook, which is left out; 1 a hook that does nothing; 2 one that takes a strong pointer
 *                  and drops it; 3 one that keeps a strong pointer the first time
 *   T_IS_NOT_B     pointers have a typed object, which a cast finds by reading the object
 *   WITH_PINS      threads pin the object beside, also before anybody has held it
 *
 * Properties, in every reachable state
 *   - nobody touches the record after its last weak count, and it goes back to the pool once;
 *   - nobody touches the object after its end, and it ends once;
 *   - a strong pointer that is valid holds a unit, and the count is the number of units (during the rites, too);
 *   - the deferred step runs once, on a living object;
 *   - the hook never runs on two threads at once.
 * At the end
 *   - the object is gone and the record is in the pool, unless the hook has kept the object: then it lives, with one
 *     count more than it has holders, and there was one warning.
 *
 * Mutations, each of which has to be found: a macro WITHOUT_... takes one rule away.
 */

#ifndef NTHREADS
#define NTHREADS 2
#endif
#ifndef NOPS
#define NOPS 4
#endif
#ifndef HOOK
#define HOOK 0
#endif
#if !defined(START_HELD) && !defined(START_WEAK) && !defined(START_BORN) && !defined(START_STACK)
#define START_HELD
#endif

#define DESTROYED -1
#define DIED_UNCLAIMED -2
#define CLAIMED 2

/* The record. */
short strong;
byte weak;
byte deferred;
bit hasObject;

/* Ghosts. */
bit isInPool;
bit isDestroyed;
byte nUnits;        /* units of the strong count that belong to a pointer or to the birth */
byte nDeferredSteps;
byte nHooksAtWork;
byte nWarnings;
bit isKept;         /* the hook keeps a strong pointer, for good */
byte nFinished;
bit hasStarted;

#define TOUCH_RECORD assert(!isInPool)
#define TOUCH_OBJECT assert(!isDestroyed)

inline RaiseWeak() {
  atomic { TOUCH_RECORD; assert(weak > 0); weak++ }
}

inline LowerWeak() {
  atomic {
    TOUCH_RECORD;
    assert(weak > 0);
    weak--;
    if
    :: weak == 0 -> assert(isDestroyed); isInPool = 1
    :: else
    fi
  }
}

/* To `isRaised`. */
inline RaiseStrong() {
  atomic {
    TOUCH_RECORD;
#ifdef WITHOUT_RAISING_ONLY_IF_POSITIVE
    isRaised = 1;
#else
    isRaised = (strong > 0);
#endif
    if
    :: isRaised -> strong++; nUnits++
    :: else
    fi
  }
}

/* A strong pointer number p from the weak one. */
inline Claim(p) {
  RaiseWeak();
#if defined(T_IS_NOT_B) && defined(WITHOUT_CASTING_BEHIND_THE_RAISE)
  atomic { TOUCH_RECORD; isTyped[p] = (hasObject && strong > 0) };
  if
  :: isTyped[p] -> TOUCH_OBJECT
  :: else
  fi;
#endif
#ifdef WITHOUT_CLAIMING_BY_ONE_STEP
  atomic { TOUCH_RECORD; isFirst = (deferred == 0) };
  deferred = CLAIMED;
#else
  atomic { TOUCH_RECORD; isFirst = (deferred == 0); deferred = CLAIMED };
#endif
  if
  :: isFirst ->
     atomic { TOUCH_RECORD; isFirst = (strong > 0); hasUnit[p] = isFirst }
  :: else ->
     RaiseStrong();
     atomic { hasUnit[p] = isRaised; isRaised = 0 }
  fi;
#ifdef T_IS_NOT_B
#ifndef WITHOUT_CASTING_BEHIND_THE_RAISE
  if
  :: hasUnit[p] -> atomic { TOUCH_RECORD; assert(hasObject); TOUCH_OBJECT; isTyped[p] = 1 }
  :: else
  fi;
#endif
#else
  isTyped[p] = hasUnit[p];
#endif
  hasRecord[p] = 1;
  if
  :: isFirst -> atomic { TOUCH_OBJECT; nDeferredSteps++; assert(nDeferredSteps == 1); isFirst = 0 }
  :: else
  fi
}

/* Strong pointer 1 from strong pointer 0. */
inline CopyStrong() {
  RaiseWeak();
  RaiseStrong();
  atomic {
    assert(!hasUnit[0] || isRaised);
    hasUnit[1] = isRaised;
    isTyped[1] = (isTyped[0] && isRaised);
    hasRecord[1] = 1;
    isRaised = 0
  }
}

/* To `isValid`, of strong pointer p. */
inline IsValid(p) {
  atomic { TOUCH_RECORD; isValid = hasObject };
  if
  :: isValid -> atomic { TOUCH_RECORD; isValid = (strong >= 1 && isTyped[p]) }
  :: else
  fi
}

/* The pointer that lets the object go still has its own weak count, so the record stays until this is over. */
inline DestroyObject() {
  TOUCH_OBJECT;             /* ReferenceTraits::preDestructor and the destructors above */
  atomic { TOUCH_RECORD; assert(strong == DESTROYED) };
  LowerWeak();              /* the self pointer */
  atomic { assert(!isDestroyed); isDestroyed = 1 };
  LowerWeak()               /* the object */
}

/* To `nOwn`: how many units the hook has taken and kept, UnctionScope::nOwnRaises. */
inline RunHook() {
  atomic { TOUCH_OBJECT; nHooksAtWork++; assert(nHooksAtWork == 1); nOwn = 0 };
#if HOOK == 2
  RaiseWeak();
  RaiseStrong();
  atomic { assert(isRaised); isRaised = 0; TOUCH_OBJECT };
  atomic { TOUCH_RECORD; assert(strong > 1); strong--; nUnits-- };
  LowerWeak();
#endif
#if HOOK == 3
  if
  :: !isKept ->
     RaiseWeak();
     RaiseStrong();
     atomic { assert(isRaised); isRaised = 0; isKept = 1; nOwn = 1 }
  :: else
  fi;
#endif
  nHooksAtWork--
}

inline ReleaseStrong(p) {
  atomic { TOUCH_RECORD; s = strong };
  do
  :: s < 1 -> break
  :: s > 1 ->
     atomic {
       TOUCH_RECORD;
#ifdef WITHOUT_COMPARING_THE_COUNT
       isSwapped = 1;
#else
       isSwapped = (strong == s);
#endif
       if
       :: isSwapped -> strong = s - 1; assert(hasUnit[p]); hasUnit[p] = 0; nUnits--
       :: else -> s = strong
       fi
     };
     if
     :: isSwapped -> isSwapped = 0; break
     :: else
     fi
  :: s == 1 ->
#if HOOK != 0
     atomic { TOUCH_RECORD; isSwapped = (strong == 1); s = strong };
     if
     :: isSwapped ->
        isSwapped = 0;
        RunHook();
        atomic { TOUCH_RECORD; s = strong };
        if
#ifdef WITHOUT_TELLING_OWN_RAISES
        :: s > 1 ->
#else
        :: s > 1 && nOwn > 0 ->
#endif
           /* The unit stays with the object. */
           atomic { nWarnings++; hasUnit[p] = 0; nOwn = 0 };
           break
        :: s == 1 -> isCondemned = 1
        :: else                                /* a raise of another thread is no resurrection */
        fi
     :: else
     fi;
#else
     isCondemned = 1;
#endif
     if
     :: isCondemned ->
        isCondemned = 0;
        atomic {
          TOUCH_RECORD;
#ifdef WITHOUT_CONFIRMING_THE_LAST_UNIT
          isSwapped = 1;
#else
          isSwapped = (strong == 1);
#endif
          if
          :: isSwapped -> strong = 0; hasUnit[p] = 0; nUnits--
          :: else -> s = strong
          fi
        };
        if
        :: isSwapped ->
           isSwapped = 0;
           assert(nUnits == 0);
           atomic { TOUCH_RECORD; strong = DESTROYED };
           atomic { TOUCH_RECORD; hasObject = 0 };
           DestroyObject();
           break
        :: else
        fi
     :: else
     fi
  od;
  s = 0;
  LowerWeak();
  atomic { hasRecord[p] = 0; isTyped[p] = 0; hasUnit[p] = 0 }
}

inline ResetUnlessLast(p) {
  atomic { TOUCH_RECORD; s = strong };
  do
  :: s > 1 ->
     atomic {
       TOUCH_RECORD;
       isSwapped = (strong == s);
       if
       :: isSwapped -> strong = s - 1; assert(hasUnit[p]); hasUnit[p] = 0; nUnits--; s = 0
       :: else -> s = strong
       fi
     }
  :: else -> break
  od;
  isSwapped = 0;
  if
  :: s == 1 -> s = 0
  :: else -> s = 0; LowerWeak(); atomic { hasRecord[p] = 0; isTyped[p] = 0 }
  fi
}

#ifdef WITH_PINS
#define NPOINTERS 3
#else
#define NPOINTERS 2
#endif

/* Pointer 2 is the pin: it never claims the unit of the birth. */
inline MakePin() {
  RaiseWeak();
  RaiseStrong();
  atomic { hasUnit[2] = isRaised; isRaised = 0; hasRecord[2] = 1 };
  if
  :: hasUnit[2] -> TOUCH_OBJECT
  :: else
  fi
}

#define CLAIM 1
#define COPY 2
#define OBSERVE 3
#define RELEASE 4
#define FORGET 5
#define USE 6
#define RESET_UNLESS_LAST 7
#define PIN 8
#define RELEASE_PIN 9

proctype Thread(bit holds; bit observes) {
  bit hasRecord[NPOINTERS]; /* strong pointers 0 and 1, and the pin: bound to the record */
  bit hasUnit[NPOINTERS];   /* ghost: owns a unit of the strong count */
  bit isTyped[NPOINTERS];
  bit hasWeak;
  byte n;
  byte operation;
  byte i;
  short s;
  bit isRaised, isFirst, isSwapped, isValid, isCondemned;
  byte nOwn;

  atomic { hasRecord[0] = holds; hasUnit[0] = holds; isTyped[0] = holds; hasWeak = observes };
  hasStarted;
  do
  :: atomic {
       i = 0;
       if
#ifdef START_BORN
       :: n == 0 -> operation = CLAIM; n++
#ifdef WITH_PINS
       :: n == 0 && !hasRecord[2] -> operation = PIN
#endif
       :: n > 0 && n < NOPS ->
#else
       :: n < NOPS ->
#endif
          n++;
          if
#ifndef START_STACK
          :: hasWeak && !hasRecord[0] -> operation = CLAIM
          :: hasWeak && hasRecord[0] && !hasRecord[1] -> operation = CLAIM; i = 1
#endif
          :: hasRecord[0] && !hasRecord[1] -> operation = COPY
          :: hasRecord[0] && !hasWeak -> operation = OBSERVE
          :: hasRecord[0] -> operation = RELEASE
          :: hasRecord[1] -> operation = RELEASE; i = 1
          :: hasWeak -> operation = FORGET
          :: hasRecord[0] -> operation = USE
          :: hasRecord[1] -> operation = USE; i = 1
          :: hasRecord[0] -> operation = RESET_UNLESS_LAST
#ifdef WITH_PINS
          :: hasWeak && !hasRecord[2] -> operation = PIN
          :: hasRecord[2] -> operation = RELEASE_PIN
#endif
          :: n = NOPS; operation = 0
          fi
       :: n == NOPS && hasRecord[1] -> operation = RELEASE; i = 1
       :: n == NOPS && !hasRecord[1] && hasRecord[0] -> operation = RELEASE
       :: n == NOPS && !hasRecord[1] && !hasRecord[0] && hasWeak -> operation = FORGET
#ifdef WITH_PINS
       :: n == NOPS && !hasRecord[1] && !hasRecord[0] && !hasWeak && hasRecord[2] -> operation = RELEASE_PIN
       :: n == NOPS && !hasRecord[1] && !hasRecord[0] && !hasWeak && !hasRecord[2] -> break
#else
       :: n == NOPS && !hasRecord[1] && !hasRecord[0] && !hasWeak -> break
#endif
       fi
     };
     if
     :: operation == CLAIM -> Claim(i)
     :: operation == COPY -> CopyStrong()
     :: operation == OBSERVE -> RaiseWeak(); hasWeak = 1
     :: operation == RELEASE -> ReleaseStrong(i)
#ifdef WITH_PINS
     :: operation == PIN -> MakePin()
     :: operation == RELEASE_PIN ->
#ifdef WITHOUT_RELEASING_PINS_LIKE_POINTERS
        atomic {
          TOUCH_RECORD;
          if
          :: hasUnit[2] -> strong--; nUnits--; hasUnit[2] = 0
          :: else
          fi
        };
        LowerWeak();
        hasRecord[2] = 0
#else
        i = 2;
        ReleaseStrong(i)
#endif
#endif
     :: operation == FORGET -> LowerWeak(); hasWeak = 0
     :: operation == RESET_UNLESS_LAST -> ResetUnlessLast(i)
     :: operation == USE ->
        IsValid(i);
        if
        :: isValid -> atomic { assert(hasUnit[i]); TOUCH_OBJECT; isValid = 0 }
        :: else -> assert(!hasUnit[i])
        fi
     :: else
     fi;
     operation = 0
  od;
  nFinished++
}

/* Fails the search as soon as the count is not the number of units. */
active proctype CountOfUnits() {
end:
  atomic { !(strong >= 0 -> strong == nUnits : nUnits == 0) -> assert(false) }
}

/* ReferenceBase::~ReferenceBase of an object that never had a strong pointer. */
proctype Owner() {
  hasStarted;
  atomic { TOUCH_RECORD; assert(strong >= 0) };
  atomic { TOUCH_RECORD; strong = DIED_UNCLAIMED; nUnits-- };
  atomic { TOUCH_RECORD; hasObject = 0 };
  atomic { TOUCH_RECORD; weak-- };
  atomic { TOUCH_RECORD; strong = DESTROYED };
  isDestroyed = 1;
  LowerWeak();
  nFinished++
}

init {
  atomic {
    strong = 1; weak = 2; hasObject = 1; nUnits = 1;  /* ReferenceRecord::allocate */
#if defined(START_STACK)
    weak = weak + NTHREADS - 1;
    run Owner();
    run Thread(0, 1);
#if NTHREADS > 2
    run Thread(0, 1);
#endif
#elif defined(START_BORN)
    weak = weak + NTHREADS;
    run Thread(0, 1);
    run Thread(0, 1);
#if NTHREADS > 2
    run Thread(0, 1);
#endif
#elif defined(START_WEAK)
    deferred = CLAIMED; nDeferredSteps = 1;
    weak = weak + NTHREADS;
    run Thread(1, 0);
    run Thread(0, 1);
#if NTHREADS > 2
    run Thread(0, 1);
#endif
#else
    deferred = CLAIMED; nDeferredSteps = 1;
    strong = NTHREADS; nUnits = NTHREADS;
    weak = weak + 2 * NTHREADS;
    run Thread(1, 1);
    run Thread(1, 1);
#if NTHREADS > 2
    run Thread(1, 1);
#endif
#endif
    hasStarted = 1
  };
  nFinished == NTHREADS;
  if
  :: isKept ->
     assert(!isDestroyed && !isInPool && hasObject);
     assert(strong == 2 && nUnits == 2 && weak == 3 && nWarnings == 1)
  :: else ->
     assert(isDestroyed && isInPool && nWarnings == 0);
     assert(nUnits == 0 && strong == DESTROYED)
  fi
#ifdef START_BORN
  ;
  assert(nDeferredSteps == 1)
#endif
}
