#!/usr/bin/env python3
"""A tour of kelstdmt from Python: containers, values that are not there, failures, and a comparison with Python's own
containers."""
import random

import kelstdmt


def show_containers():
    names = kelstdmt.StringSequence(["ada", "grace", None])
    names.insert(1, "chlo\u00e9")
    print(names.type_name, len(names), names[:], names[-1])
    ages = kelstdmt.IntDictionary({"ada": 36, "grace": 85})
    ages["nobody"] = kelstdmt.UNINIT
    ages["ada"] += 1
    print(ages.type_name, len(ages), sorted(ages), ages["ada"], ages["nobody"], "linus" in ages)
    print(kelstdmt.RealSequence([1.5, None, 1e300]))
    print(kelstdmt.BoolDictionary({"open": True}))


def show_failures():
    numbers = kelstdmt.IntSequence([1, 2, 3])
    for name, action in (
        ("beyond the end", lambda: numbers[3]),
        ("a list does not grow", lambda: numbers.__setitem__(7, 0)),
        ("too far", lambda: numbers.set(2**31 - 1, 0)),
        ("no 32-bit number", lambda: numbers.append(2**31)),
        ("a key that is missing", lambda: kelstdmt.IntDictionary()["key"]),
    ):
        try:
            action()
        except (kelstdmt.Error, LookupError, OverflowError) as error:
            print(f"{name}: {error} ({type(error).__name__})")
    try:
        numbers.set(-1, 0)
    except IndexError as error:
        print(error.type_name, str(error.object), sep=", printed:\n")
    print(numbers[:])


def compare(steps):
    """The same random changes on ours and on Python's own."""
    chance = random.Random(5)
    ours, model = kelstdmt.StringSequence(), []
    our_table, table = kelstdmt.RealDictionary(), {}
    for _ in range(steps):
        text = chr(chance.randrange(1, 0xD800)) * chance.randrange(5)
        place, key = chance.randint(0, len(model)), f"key {chance.randrange(50)}"
        if chance.random() < 0.6:
            ours.insert(place, text)
            model.insert(place, text)
            our_table[key] = table[key] = chance.uniform(-1e9, 1e9)
        elif place < len(model):
            del ours[place], model[place]
            our_table.pop(key, None)
            table.pop(key, None)
    assert ours[:] == model and dict(our_table) == table, "ours differs from Python's"
    doubled = kelstdmt.StringSequence(ours)
    doubled.extend(ours)
    assert doubled[:] == 2 * model, "a sequence behind another"
    print(f"{steps} changes: equal")


show_containers()
show_failures()
compare(3000)
