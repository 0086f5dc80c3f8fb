// The program of kx_layer_check (cmake/KxTargets.cmake): linking it is the whole check.
int main() { return 0; }
