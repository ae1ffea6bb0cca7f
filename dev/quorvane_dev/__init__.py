"""The quorvane development service: the service's calls and web pages on loopback, for one machine.

It is for people who try the client, for the demo, and for the tests.  Do not deploy it: there are no
passwords, and everybody who can reach the port may act as any account.

`configuration` is JSON whose numbers stay as written, `store` the state in SQLite, `service` the
Flask application.  `authority` makes certificates for `dev/front` and the tests.
"""
