# The program's frame and the tree's own tools.

qz_system_test(tooling)
