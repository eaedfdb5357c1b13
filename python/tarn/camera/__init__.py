"""The program ``tarn-camera``: a GigE Vision camera from one command.

Nothing in ``tarn`` or ``tarn.gevserver`` imports it, so that programs with cameras of their own need none of
what it is built from.
"""
