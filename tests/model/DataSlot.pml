/* SPDX-License-Identifier: BSD-3-Clause */
/* Copyright (c) 2026 the Tresk authors */

/* The data slot of one creator: NTHREADS threads copy it, fill it, take from it and evict it, with records that are
 * used again at once.
 *
 * What stands for what
 *   Allocate, Retire      ReferenceRecord::allocate and retire
 *   LowerWeak             ReferenceRecord::lowerWeak
 *   RaiseWeak             ReferenceRecord::raiseWeakIfPositive
 *   RaiseStrong           ReferenceRecord::raiseStrongIfPositive
 *   Acquire               StrongPtr::acquire with DynPtrRoot::acquireWeak: Creator::getData
 *   Assign                StrongPtr::operator=, exchange and drop: Creator::produce and setData
 *   Take                  StrongPtr::take: Creator::takeData
 *   ForgetIfSole          StrongPtr::forgetIfSole: AlzheimerCreator::release
 *   Drop                  StrongPtr::drop with releaseStrongUnit, and the default hook: ~StrongPtr of an own pointer
 * Each access to the slot and to a field of a record is a step of its own. A loop of compare-and-swap that gives up at
 * zero decides at its last look, and so is one step. One exception: Assign makes its own reference to its new data,
 * which no other thread knows yet, with both counts in one step. Orders of memory are sequentially consistent here.
 *
 * Each thread makes NOPS free choices and holds the result of one, until the next choice drops it. Records are numbered
 * from 1 and are used again lowest first, so that a number read from the slot leads to other data as often as possible.
 * A record in the pool may be looked at (Note [Records are type-stable] in ReferenceRecord.hpp); only a reference may be
 * used.
 *
 * Properties, in every reachable state
 *   - what a thread acquired lives as long as the thread holds it, and had been in the slot;
 *   - a copy that is no data is an answer only while the slot holds none;
 *   - a record goes to the pool once, after its object, and is alive for one object at a time;
 *   - the same data never go to two threads that take.
 * At the end, with the slot emptied, every object that was made is gone, and so is every record.
 *
 * Mutations, each of which has to be found: a macro WITHOUT_... takes one rule away.
 */

#ifndef NTHREADS
#define NTHREADS 2
#endif
#ifndef NOPS
#define NOPS 3
#endif
#ifndef NRECORDS
#define NRECORDS (NTHREADS + 2)
#endif

#define NIL 0
#define DESTROYED -1

byte slot = NIL;

short strong[NRECORDS + 1];
byte weak[NRECORDS + 1];
bit hasObject[NRECORDS + 1];

/* Ghosts. */
bit isTaken[NRECORDS + 1];    /* the record is out of the pool */
bit isAlive[NRECORDS + 1];    /* its object may be touched */
byte life[NRECORDS + 1];      /* the number of its object */
byte lifeInSlot[NRECORDS + 1];/* the last object of this record that was put into the slot */
byte nMade;
byte nDestroyed;
byte nFinished;
bit hasStarted;

#define TOUCH_OBJECT(r) assert(isAlive[r])

inline LowerWeak(r) {
  atomic {
    assert(weak[r] > 0);
    weak[r]--;
    if
    :: weak[r] == 0 -> assert(isTaken[r] && !isAlive[r]); isTaken[r] = 0
    :: else
    fi
  }
}

/* To `isRaised`; the life of the record is fixed from here on. */
inline RaiseWeak(r) {
  atomic {
    isRaised = (weak[r] > 0);
    if
    :: isRaised -> weak[r]++; mine = life[r]
    :: else
    fi
  }
}

inline RaiseStrong(r) {
  atomic {
    isRaised = (strong[r] > 0);
    if
    :: isRaised -> strong[r]++; mine = life[r]
    :: else
    fi
  }
}

/* Gives back one strong unit and the weak count beside it. */
inline Drop(r) {
  s = strong[r];
  do
  :: s < 1 -> break
  :: s > 1 ->
     atomic {
       isSwapped = (strong[r] == s);
       if
       :: isSwapped -> strong[r] = s - 1
       :: else -> s = strong[r]
       fi
     };
     if
     :: isSwapped -> break
     :: else
     fi
  :: s == 1 ->
     atomic {
       isSwapped = (strong[r] == 1);
       if
       :: isSwapped -> strong[r] = 0
       :: else -> s = strong[r]
       fi
     };
     if
     :: isSwapped ->
        strong[r] = DESTROYED;
        hasObject[r] = 0;
        TOUCH_OBJECT(r);
        LowerWeak(r);                       /* the self pointer, in ~ReferenceBase */
        atomic { TOUCH_OBJECT(r); isAlive[r] = 0; nDestroyed++ };
        LowerWeak(r);                       /* the object */
        break
     :: else
     fi
  od;
  atomic { s = 0; isSwapped = 0 };
  LowerWeak(r)
}

/* A new object with its first strong pointer, to `r`. There is a record for each object that may live, and more. */
inline Allocate(r) {
  atomic {
    r = 1;
    do
    :: isTaken[r] -> r++; assert(r <= NRECORDS)
    :: else -> break
    od;
    isTaken[r] = 1;
    assert(!isAlive[r] && weak[r] == 0);
    isAlive[r] = 1;
    nMade++;
    life[r] = nMade
  };
  hasObject[r] = 1;
  strong[r] = 1;
  weak[r] = 2;      /* last: from here on a reader that knows the record's former life can raise it */
  atomic { weak[r]++ }
}

/* A reference to what the slot holds, to `got`, which is NIL if there are no data. */
inline Acquire() {
  do
  :: true ->
     r = slot;
     if
     :: r == NIL -> break
     :: else
     fi;
#ifdef WITHOUT_WEAK_FIRST
     RaiseStrong(r);
     if
     :: isRaised ->
        atomic { assert(weak[r] > 0); weak[r]++ };
        if
        :: slot == r -> got = r; break
        :: else -> Drop(r)
        fi
     :: else -> if :: slot == r -> break :: else fi
     fi
#else
#ifdef WITHOUT_RAISING_ONLY_IF_POSITIVE
     atomic { isRaised = 1; weak[r]++; mine = life[r] };
#else
     RaiseWeak(r);
#endif
     if
     :: isRaised ->
#ifndef WITHOUT_THE_SECOND_LOOK
        if
        :: slot == r ->
#endif
           RaiseStrong(r);
           if
           :: isRaised -> got = r; break
           :: else ->
              /* An invalid copy: the slot itself has no data, unless it has changed. */
              atomic { isSwapped = (slot == r); assert(!isSwapped || strong[r] < 1) };
              LowerWeak(r);
              if
              :: isSwapped -> isSwapped = 0; break
              :: else
              fi
           fi
#ifndef WITHOUT_THE_SECOND_LOOK
        :: else -> LowerWeak(r)
        fi
#endif
     :: else
     fi
#endif
  od;
  atomic {
    if
    :: got != NIL -> assert(lifeInSlot[got] == life[got] && mine == life[got]); TOUCH_OBJECT(got)
    :: else
    fi;
    r = NIL; isRaised = 0; mine = 0
  }
}

/* Puts a new object into the slot, and keeps a pointer to it in `got`, as `produce` does. */
inline Assign() {
  Allocate(got);
  atomic { assert(strong[got] > 0); strong[got]++; weak[got]++ };
#ifdef WITHOUT_EXCHANGING_FIRST
  r = slot;
  if
  :: r != NIL -> Drop(r)
  :: else
  fi;
  atomic { slot = got; lifeInSlot[got] = life[got]; r = NIL }
#else
  atomic { r = slot; slot = got; lifeInSlot[got] = life[got] };
  if
  :: r != NIL -> Drop(r); r = NIL
  :: else
  fi
#endif
}

inline Take() {
#ifdef WITHOUT_TAKING_IN_ONE_STEP
  got = slot;
  slot = NIL;
#else
  atomic { got = slot; slot = NIL };
#endif
  if
  :: got != NIL -> TOUCH_OBJECT(got)
  :: else
  fi
}

inline ForgetIfSole() {
  do
  :: true ->
     r = slot;
     if
     :: r == NIL -> break
     :: else
     fi;
     isRaised = hasObject[r];
     s = strong[r];
     if
     :: slot != r -> skip                   /* those were the counts of another object */
     :: else ->
        if
        :: !isRaised || s != 1 -> break
        :: else ->
#ifdef WITHOUT_COMPARING_THE_SLOT
           atomic { isSwapped = 1; slot = NIL };
#else
           atomic {
             isSwapped = (slot == r);
             if
             :: isSwapped -> slot = NIL
             :: else
             fi
           };
#endif
           if
           :: isSwapped -> isSwapped = 0; s = 0; Drop(r); break
           :: else
           fi
        fi
     fi
  od;
  atomic { r = NIL; s = 0; isRaised = 0 }
}

proctype Thread() {
  byte n;
  byte operation;
  byte got;           /* the record of which this thread holds a reference */
  byte r;
  short s;
  byte mine;
  bit isRaised, isSwapped;

  hasStarted;
  do
  :: atomic {
       if
       :: n < NOPS -> n++; operation = 1
       :: n < NOPS -> n++; operation = 2
       :: n < NOPS -> n++; operation = 3
       :: n < NOPS -> n++; operation = 4
       :: n == NOPS -> n++; operation = 0
       :: n > NOPS -> break
       fi
     };
     if
     :: got != NIL -> TOUCH_OBJECT(got); Drop(got); got = NIL
     :: else
     fi;
     if
     :: operation == 1 -> Acquire()
     :: operation == 2 -> Assign()
     :: operation == 3 -> Take()
     :: operation == 4 -> ForgetIfSole()
     :: else
     fi
  od;
  nFinished++
}

init {
  byte r;
  short s;
  bit isSwapped;
  atomic {
    nMade = 1; isTaken[1] = 1; isAlive[1] = 1; hasObject[1] = 1; strong[1] = 1; weak[1] = 3; life[1] = 1;
    slot = 1; lifeInSlot[1] = 1;            /* the creator is the only holder */
    run Thread();
    run Thread();
#if NTHREADS > 2
    run Thread();
#endif
    hasStarted = 1
  };
  nFinished == NTHREADS;
  atomic { r = slot; slot = NIL };
  if
  :: r != NIL -> Drop(r)
  :: else
  fi;
  assert(nMade == nDestroyed);
  r = 1;
  do
  :: r <= NRECORDS -> assert(!isTaken[r] && weak[r] == 0); r++
  :: else -> break
  od
}
