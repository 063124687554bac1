"""docs/installation.md quotes no measurement."""
STATEMENTS = []
GIVEN = ['Debian 12 (bookworm), x86-64, with g++ 12 and clang++ 14']
