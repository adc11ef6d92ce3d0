"""One file per peer: STYLES and a function per work (see nalora.py)."""
