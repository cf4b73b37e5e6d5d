/* SPDX-License-Identifier: BSD-3-Clause */
/* Copyright (c) 2026 the Tresk authors */

/* Two functional creators, the cache, two users, and a thread of the cache.
 *
 * What stands for what, beside Cache.pml
 *   Release                   AlzheimerCreator::release, StrongPtr::forgetIfSole
 *   Produce                   FunctionalCreatorBase::produce
 *   Create                    CreatorBase::create
 *
 * With UNSERIALISED there is no creation mutex, as in OnDemandCreator: two threads may produce at once, the last data
 * stay in the creator, and the others live as long as their user wants.
 *
 * Each user holds both creators, makes NOPS choices among the use of a creator and dropping it, keeps at most one of
 * the data, and drops them at any time. The thread of the cache makes NPASSES passes at any time.
 * At the end, with nobody active: one more pass brings the held bytes to the limit. Then the creators go, and nothing
 * is left of them, their data and the books. Properties are those of Cache.pml.
 */

#ifndef NOPS
#define NOPS 2
#endif
#ifndef NPASSES
#define NPASSES 1
#endif
#ifndef LIMIT
#define LIMIT 1
#endif
#ifndef BYTES0
#define BYTES0 1
#endif
#ifndef BYTES1
#define BYTES1 1
#endif
#ifndef NRECORDS
#define NRECORDS 4
#endif
#define NTHREADS 3

#include "Cache.pml"

byte nActive;

/* Forgets the data if the creator is their only holder. The count may rise behind the look at it: the data then live on
 * with whoever raised it. */
inline Release(c) {
  do
  :: true ->
     atomic {
       TOUCH_CREATOR(c);
       dying = slot[c];
       isShared = (dying != NIL && strong[dying] > 1)
     };
     if
     :: dying == NIL -> isReleased = 1; break
     :: isShared -> atomic { isShared = 0; dying = NIL }; break
     :: else ->
        atomic {
          TOUCH_CREATOR(c);
#ifdef WITHOUT_COMPARING_THE_SLOT
          isReleased = 1;
#else
          isReleased = (slot[c] == dying);
#endif
          if
          :: isReleased -> slot[c] = NIL
          :: else -> dying = NIL
          fi
        };
        if
        :: isReleased -> DropData(dying); dying = NIL; break
        :: else
        fi
     fi
  od
}

inline BeginEndOfCreator(c) { skip }

inline Produce(c, r) {
#ifndef UNSERIALISED
  atomic { !creationMutex[c] -> TOUCH_CREATOR(c); creationMutex[c] = 1 };
  CopySlot(c, r);
#endif
  if
  :: r == NIL ->
     MakeData(r);
     atomic { TOUCH_CREATOR(c); former = slot[c]; slot[c] = r; strong[r]++ };
     if
     :: former != NIL -> DropData(former); former = NIL
     :: else
     fi
  :: else
  fi;
#ifndef UNSERIALISED
  creationMutex[c] = 0
#endif
}

inline Create(c, r) {
  CopySlot(c, r);
  if
  :: r != NIL -> Note(r)
  :: else ->
     Produce(c, r);
     SetCreator(r, c);
     Settle()
  fi
}

proctype User(byte me) {
  THREAD_LOCALS;
  byte n, c, mine, got, former;
  byte holds = 3;  /* bit c: this user holds creator c */

  do
  :: n < NOPS && holds != 0 ->
     atomic {
       n++;
       if
       :: holds & 1 -> c = 0
       :: holds & 2 -> c = 1
       fi
     };
     if
     :: true ->
        Create(c, got);
        TOUCH(got);
        if
        :: mine != NIL -> DropData(mine)
        :: else
        fi;
        atomic { mine = got; got = NIL }
     :: true ->
        holds = holds & (2 - c);
        DropCreator(c)
     fi;
     c = 0
  :: mine != NIL -> DropData(mine); mine = NIL
  :: mine == NIL && (n == NOPS || holds == 0) -> break
  od;
  atomic { n = 0; holds = 0; nActive-- }
}

proctype CacheThread(byte me; byte n) {
  THREAD_LOCALS;
  do
  :: n > 0 -> Settle(); n--
  :: else -> break
  od;
  nActive--
}

init {
  THREAD_LOCALS;
  byte me = NTHREADS;
  atomic {
    nHolders[0] = 2;
    nHolders[1] = 2;
    creatorHasMemory[0] = 1;
    creatorHasMemory[1] = 1;
    nActive = 3;
    run User(1);
    run User(2);
    run CacheThread(3, NPASSES)
  };
  nActive == 0;
  atomic { nActive = 1; run CacheThread(3, 1) };
  nActive == 0;
  assert(held <= LIMIT && leaving == 0 && inFlight == 0);
  do
  :: nHolders[0] > 0 -> DropCreator(0)
  :: nHolders[0] == 0 && nHolders[1] > 0 -> DropCreator(1)
  :: nHolders[0] == 0 && nHolders[1] == 0 -> break
  od;
  assert(!creatorHasMemory[0] && !creatorHasMemory[1]);
  assert(held == 0 && leaving == 0 && inFlight == 0 && nLinked == 0);
  i = 1;
  do
  :: i <= NRECORDS -> assert(!hasMemory[i] && strong[i] == 0); i++
  :: else -> break
  od
}
