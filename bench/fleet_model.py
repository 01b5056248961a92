"""How a fleet of any size comes back after a fault, second by second, in expected numbers of devices.

What a device does is what the daemon does: a poll that is answered 304 is followed at once by another on the same
connection; one that fails or is refused, by another after 60 s on a new connection; one that is cut while it is held
is sent again at once, and once only. A device that has waited 30 s for its connection gives up.
"""

import collections
import dataclasses

BACK_OFF = 60
CONNECT_LIMIT = 30


@dataclasses.dataclass
class Scene:
    """What happens at second 0, to a fleet whose polls are all held."""

    devices: float
    seconds: int  # how long to look
    hold: int = 300
    jitter: bool = False  # holds of 80 to 100 % of that, instead of all of it
    outage: int = 0  # nothing listens for so many seconds
    cut: bool = False  # all connections are lost, and the service goes on
    drain: int = 0  # all devices are sent to other instances, one after the other, in so many seconds
    handshakes: float = float("inf")  # that the front end does per second
    refuse: float = 0  # this share of the polls gets 503 ...
    refuse_until: int = 0  # ... up to this second ...
    refuse_over: int = 0  # ... each after a random time of up to so many seconds
    limit: float = float("inf")  # polls per second; those beyond it get 503, too


@dataclasses.dataclass
class Course:
    """One number for each second."""

    polls: list  # that arrived, refused ones included
    handshakes: list
    refused: list
    given_up: list  # for want of a connection
    held: list  # polls that are held at its end


def recovered(scene, course, share=0.99):
    """The second from which on at least this share of the devices has a poll held; None if there is none."""
    lacking = [second for second, held in enumerate(course.held) if held < share * scene.devices]
    after = lacking[-1] + 1 if lacking else 0
    return after if after < scene.seconds else None


def simulate(scene):
    fresh = collections.Counter()  # by second: polls that need a connection
    due = collections.Counter()  # by second: holds that end, after which their devices poll again
    waiting = collections.deque()  # (since, polls) without a connection yet
    course = Course(*([0.0] * scene.seconds for _ in dataclasses.fields(Course)))
    if scene.outage or scene.cut:
        fresh[0 if scene.cut else BACK_OFF] = scene.devices
    else:
        spread(due, 0, scene.hold, scene.devices)

    for now in range(scene.seconds):
        if now < scene.outage:
            fresh[now + BACK_OFF] += fresh.pop(now, 0)
            continue
        kept = due.pop(now, 0)
        if now < scene.drain:
            held = due.total()
            moved = min(scene.devices / scene.drain, held)
            for second in due:
                due[second] *= 1 - moved / held
            fresh[now] += moved
        waiting.append((now, fresh.pop(now, 0)))
        served, given_up = take(waiting, now, scene.handshakes)
        polls = kept + served
        welcome = polls * (1 - scene.refuse) if now < scene.refuse_until else polls
        accepted = min(welcome, scene.limit)
        fresh[now + BACK_OFF] += given_up
        spread(fresh, now + BACK_OFF, scene.refuse_over + 1, polls - accepted)
        shortest = round(scene.hold * 0.8) if scene.jitter else scene.hold
        spread(due, now + shortest, scene.hold + 1 - shortest, accepted)
        for name, value in (("polls", polls), ("handshakes", served), ("refused", polls - accepted),
                            ("given_up", given_up), ("held", due.total())):
            getattr(course, name)[now] = value
    return course


def spread(counts, start, seconds, count):
    for second in range(start, start + seconds):
        counts[second] += count / seconds


def take(waiting, now, capacity):
    """How many of those that wait get their connection, the first first, and how many give up."""
    served = given_up = 0.0
    while waiting and (now - waiting[0][0] >= CONNECT_LIMIT or served < capacity):
        since, count = waiting.popleft()
        if now - since >= CONNECT_LIMIT:
            given_up += count
            continue
        taken = min(count, capacity - served)
        served += taken
        if taken < count:
            waiting.appendleft((since, count - taken))
    return served, given_up
