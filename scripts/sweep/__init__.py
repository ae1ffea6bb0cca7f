"""Shared by the sweeps: runs of the shipped program with something broken, and a judge of each.

Modules, each using only those before it: `messages` (the messages of the program, read from
docs/messages.md), `service` (the peers: service, browser, name server), `laboratory` (a network of
its own, a home for each run, the commands with their files before and after), `tracing` (kernel
calls seen and tampered with), `faults` (the errors of each call), `judge` (whether a run
kept the program's promises), `report` (tasks on all processors, the table at the end).
"""
