"""Loads the installed shared libraries and runs one request: ctypes_consumer.py LIBRARY_DIRECTORY"""
import ctypes
import sys

directory = sys.argv[1]
jorvet = ctypes.CDLL(f"{directory}/libjorvet.so")
sim = ctypes.CDLL(f"{directory}/libjorvet-sim.so")

sim.jv_sim_attach_bridge.restype = ctypes.c_void_p
sim.jv_sim_attach_bridge.argtypes = [ctypes.c_char_p, ctypes.c_char_p]
sim.jv_sim_detach.argtypes = [ctypes.c_void_p]
jorvet.JVGetInstance.restype = ctypes.c_void_p
jorvet.JVConnect.argtypes = [ctypes.c_void_p, ctypes.c_ubyte]
jorvet.JVReadByIdRq.argtypes = [ctypes.c_void_p] + [ctypes.c_ubyte] * 3 + [
    ctypes.POINTER(ctypes.c_ushort), ctypes.c_char_p, ctypes.c_bool]
jorvet.JVCloseInstance.argtypes = [ctypes.c_void_p]

bridge = sim.jv_sim_attach_bridge(b"PYTHON", None)
board = jorvet.JVGetInstance(0)
length = ctypes.c_ushort(0)
data = ctypes.create_string_buffer(65535)
connected = jorvet.JVConnect(board, 0)
status = jorvet.JVReadByIdRq(board, 0, 1, 0, length, data, True)
jorvet.JVCloseInstance(board)
sim.jv_sim_detach(bridge)

assert (connected, status) == (0, 0), (connected, status)
assert data.raw[:length.value] == b"jorvet", data.raw[:length.value]
