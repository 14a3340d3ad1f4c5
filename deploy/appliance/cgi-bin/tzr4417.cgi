#!/usr/lib/tzr4417/limits/tzr4417.cgi
# The web server starts this script from the folder cgi-bin of its pages. The first line runs the
# program, under the limits below for one request. A missing line sets no limit. A comment takes a
# whole line.

# Users who may write; a line for each. Without one, everybody with a password may.
# writer = admin

# Bytes of a request's body. All parameters of an encoder in one read take half of it.
body_limit = 16384

# Seconds until the answer. A read then answers with the values so far, a write with 500.
time_limit = 30

# Seconds for the child of a write to apply and save. A slow apply must not lose its save.
child_limit = 300

# Seconds of processor time, for the program and again for the child.
cpu_limit = 2

# KB of memory, with all mappings, for the program and again for the child.
memory_limit = 32768

# Processes of the web server's user. Beyond this number a write starts no child: it applies and
# saves before its answer is complete, within the time limit.
process_limit = 64
