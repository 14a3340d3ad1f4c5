#!/usr/lib/tzr4417/limits/tzr4417.cgi
# What the web server starts, from the folder cgi-bin of its pages: the program with the limits of
# one request. A limit whose line is missing is not set. A comment takes a whole line.

# Bytes of a request's body. All parameters of an encoder in one read take half of it.
body_limit = 16384

# Seconds until the answer, which then holds what is known: a read the values so far, a write 500.
time_limit = 30

# Seconds for the child that applies and saves after a write. A slow apply must not lose its save.
child_limit = 300

# Seconds of processor time, for the program and again for the child.
cpu_limit = 2

# KB of memory, with all that is mapped, for the program and again for the child.
memory_limit = 32768

# Processes of the web server's user, with which a write leaves no further child: it applies
# and saves before the reply is complete, within the time limit.
process_limit = 64
