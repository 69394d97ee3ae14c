#!../../bin/linux-x86_64/lamp
< envPaths
epicsEnvSet("STREAM_PROTOCOL_PATH", "$(TOP)/db")
dbLoadDatabase("$(TOP)/dbd/lamp.dbd")
lamp_registerRecordDeviceDriver(pdbbase)
drvAsynIPPortConfigure("LAMP", "192.0.2.7:4001")
save_restoreSet_Debug(0)
set_savefile_path("/var/lib/lamp", "autosave")
set_requestfile_path("$(TOP)/db")
set_pass1_restoreFile("lamp.sav")
dbLoadRecords("$(TOP)/db/lamp.db", "P=LAMP1:,PORT=LAMP")
iocInit()
makeAutosaveFileFromDbInfo("/var/lib/lamp/lamp.req", "autosaveFields")
create_monitor_set("lamp.req", 1)
