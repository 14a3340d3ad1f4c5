include $(sort $(wildcard $(BR2_EXTERNAL_TZR4417_PATH)/package/*/*.mk))
