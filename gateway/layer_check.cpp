// An empty program linked with one whole gateway layer: it builds only when that layer's objects
// need nothing beyond the layers it declares (see gateway/CMakeLists.txt).
int main() {
    return 0;
}
