"""What the sweeps share: runs of the shipped program with something broken, and a judge of each.

Modules, each using only those before it: `messages` (what the program may say, read from
docs/messages.md), `service` (the peers: service, browser, name server), `laboratory` (a network of
its own, a home for each run, the commands with their files before and after), `tracing` (kernel
calls seen and tampered with), `faults` (what can go wrong with each call), `judge` (whether a run
kept the program's promises), `report` (tasks on all processors, the table at the end).
"""
