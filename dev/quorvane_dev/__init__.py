"""The quorvane development service: the service's API and web pages on loopback, for one machine.

It is for people who try the client, for the demo, and for the tests, which start it as a program or
in their own process (`Service` in `server.py`).  Do not deploy it: there are no passwords, and
everybody who can reach the port may act as any account.

Modules, each using only those before it: `jsontext` (JSON that keeps its own text), `store`
(state in SQLite), `messages` (requests and answers), `markup` and `differences` (pieces of pages),
`api` and `pages` (the answers to requests), `server` (sockets), `main` (the command line).
`visitor` is a scripted browser for the demo and the tests; `authority` makes certificates, and
`front` puts nginx and a name server with them in front of the service.
"""
