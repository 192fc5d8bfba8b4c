"""How the program queries a GPU's number and capability from CUDA, as a part of the fault sweep's oracle."""

from sweep_machine import CUDA_DRIVER, DRIVER_LIBRARY, NVIDIA, PROPERTIES, RUNTIME_LIBRARY


class CudaOracle:
    """The first library that answers a count; a device that has returned its properties is not asked again."""

    def __init__(self, libraries):
        self._libraries = libraries
        self._way = None
        self._known = set()
        for version in (13, 12, 11):
            if self._way is None and version in libraries.cudart:
                self._try_runtime(version)
        if self._way is None and libraries.has_driver:
            complete = all(libraries.has(DRIVER_LIBRARY, function) for function in CUDA_DRIVER)
            if complete and libraries.call("cuInit") == 0:
                self._way = "driver"

    def _try_runtime(self, version):
        names = [PROPERTIES[version]] + (["cudaGetDeviceProperties"] if version == 12 else [])
        names = [name for name in names if self._libraries.has(RUNTIME_LIBRARY[version], name)]
        if not names or not self._libraries.has(RUNTIME_LIBRARY[version], "cudaGetDeviceCount"):
            return
        if self._libraries.call("cudaGetDeviceCount") == 0:
            self._way = names[0]

    def index_on(self, bus):
        if self._way is None:
            return -1
        status = self._libraries.call("cuDeviceGetCount" if self._way == "driver" else "cudaGetDeviceCount")
        for index in range(len(NVIDIA) if status == 0 else 0):
            if self._is_known(index) and NVIDIA[index].bus == bus:
                return index
        return -1

    def has_optix(self, index):
        return index >= 0 and self._is_known(index) and NVIDIA[index].compute >= (7, 5)

    def _is_known(self, index):
        if index not in self._known:
            asked = ["cuDeviceGet"] + 3 * ["cuDeviceGetAttribute"] if self._way == "driver" else [self._way]
            if any(self._libraries.call(function) != 0 for function in asked):
                return False
            self._known.add(index)
        return True
