# SPDX-License-Identifier: MIT
"""Mutation testing of the project's shared libraries; tools/mutation is the program."""
