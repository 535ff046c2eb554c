/* Alerts on their way from the store to a receiver: the pass that stores them, the worker that sends them, the
 * deliverer that writes down how far the worker is, with lost answers, an alert that the receiver does not take,
 * and the daemon's death between any two steps.
 *
 * Proved:
 *   an alert is done with only after the receiver has answered that it has it, or after it was put aside and
 *   that is stored                                  assert in Deliverer
 *   the receiver gets them in their order           assert in Receive
 *   at the end every alert is there or put aside    assert in AtTheEnd
 *
 * Runs, as it is and with a mechanism taken away:
 *   holds
 *   fails WAKE_BEFORE_COMMIT  the worker is woken before the alert is stored
 *   fails CLEARED_LATE        the worker forgets that it was woken after it has looked, not before
 *   fails DONE_WHEN_SENT      an alert is done with when it was sent, whatever the answer
 *   fails CHANGES_FIRST       what was put aside is taken before the place, not behind it
 */
#define ALERTS 4
#define FAILURES 2 /* of sending */
#define DEATHS 1
#define REFUSED 2 /* the receiver never takes this one */

/* In the store. */
byte stored = 0; /* alerts, in their order */
byte place = 0;  /* all up to here are done with */
bool aside[ALERTS + 1];

/* At the receiver, which knows an alert again by its key. */
bool has[ALERTS + 1];
byte newest = 0;

/* Of the daemon that runs. */
bool woken = false;
byte done = 0;               /* up to here, in memory */
bool ahead[ALERTS + 1];      /* done with before all in front of it are */
bool put_aside[ALERTS + 1];  /* in memory */
bool dies = false;
byte deaths = 0;
byte alive = 0; /* worker and deliverer */
byte failures = 0;

#define DONE(id) (has[id] || aside[id])

/* The receiver takes an alert. One that it has already changes nothing. */
inline Receive(id) {
    d_step {
        if
        :: !has[id] ->
            has[id] = true;
            assert(newest < id);
            newest = id
        :: else
        fi
    }
}

/* code: agent/daemon/monitor.cc StorePass
 * code: agent/sinks/deliverer.cc Wake */
proctype Pass() {
    do
    :: stored < ALERTS ->
#ifdef WAKE_BEFORE_COMMIT
        woken = true;
        stored++
#else
        stored++;
        woken = true
#endif
    :: else -> break
    od
}

/* Sends alert `id`. `taken` tells what the worker hears of it. */
inline Send(id, taken) {
    if
    :: id != REFUSED -> Receive(id); taken = true
    :: id != REFUSED && failures < FAILURES -> failures++; Receive(id); taken = false /* the answer is lost */
    :: id != REFUSED && failures < FAILURES -> failures++; taken = false
    :: id == REFUSED -> taken = false
    fi
}

proctype Worker() {
    byte next;
    bool taken;
    do
    :: atomic { dies -> goto dead }
    :: else ->
        /* code: agent/sinks/worker.cc NextBatch */
#ifndef CLEARED_LATE
        woken = false;
#endif
        d_step {
            next = done + 1;
            do
            :: next <= stored && ahead[next] -> next++
            :: else -> break
            od
        };
        if
        :: next > stored ->
            done = next - 1;
#ifdef CLEARED_LATE
            woken = false;
#endif
            /* code: agent/sinks/worker.cc WaitForAlerts */
end_without_news:
            (woken || dies)
        :: else ->
            Send(next, taken);
#ifdef DONE_WHEN_SENT
            taken = true;
#endif
            /* code: agent/sinks/worker.cc Handle */
            if
            :: taken -> done = next
            :: !taken && next == REFUSED && next < stored ->
                /* code: agent/sinks/worker.cc TakesAnother
                 * code: agent/sinks/worker.cc Settle */
                Send(next + 1, taken);
                if
                :: taken ->
                    ahead[next + 1] = true;
                    d_step { put_aside[next] = true; done = next }
                :: else
                fi
            :: else
            fi
        fi
    od;
dead:
    alive--
}

/* Writes down what has become of the alerts, now and then. The place is looked at before what was put aside.
 * code: agent/sinks/progress.h Rows
 * code: agent/sinks/progress.h TakeChanges */
proctype Deliverer() {
    byte rows;
    byte i;
    bool changes[ALERTS + 1];
    do
    :: atomic { dies -> goto dead }
    :: else ->
#ifdef CHANGES_FIRST
        d_step { i = 1; do :: i <= ALERTS -> changes[i] = put_aside[i]; i++ :: else -> break od; i = 0 };
        rows = done;
#else
        rows = done;
        d_step { i = 1; do :: i <= ALERTS -> changes[i] = put_aside[i]; i++ :: else -> break od; i = 0 };
#endif
        d_step {
            place = rows;
            i = 1;
            do
            :: i <= ALERTS -> aside[i] = aside[i] || changes[i]; i++
            :: else -> break
            od;
            i = 1;
            do
            :: i <= place -> assert(DONE(i)); i++
            :: else -> break
            od;
            i = 0
        };
end_written:
        (done != rows || dies)
    od;
dead:
    alive--
}

/* Starts, and dies; what was only in memory is gone. */
proctype Daemon() {
    byte i;
    do
    :: true ->
        d_step {
            done = place;
            woken = false;
            dies = false;
            i = 1;
            do
            :: i <= ALERTS -> ahead[i] = false; put_aside[i] = false; i++
            :: else -> break
            od;
            i = 0
        };
        atomic { alive = 2; run Worker(); run Deliverer() };
        if
        :: deaths < DEATHS -> deaths++; dies = true
        :: break
        fi;
        alive == 0
    od
}

active proctype AtTheEnd() {
    byte i = 1;
    timeout ->
    do
    :: i <= ALERTS ->
        assert(has[i] || (i == REFUSED && put_aside[i]) || (i == REFUSED && aside[i]));
        i++
    :: else -> break
    od
}

init {
    atomic { run Pass(); run Daemon() }
}
